#pragma once

namespace sim {

class Control;
class ProgramFaults;
class Reports;
class Root;

// The control command "clock", on the clock of the process that serves the phone:
//   advance SECONDS   moves it on; fractions are taken
//   await-sleepers N  waits until N threads sleep on it; an error after 20 s of real time
void addClockCommand(Control& control);

// The control command "fault", which makes parts in the service's process fail on purpose:
//   program NAME fail STATUS   the program of the shell or of init ends with that status, 1 to 255
//   program NAME hang          it waits before it runs
//   program NAME run           ends both faults; the waiting programs run
//   disk full|free             files opened from here on take no byte
//   reports refuse|take        whether the reporting library takes reports
void addFaultCommand(Control& control, ProgramFaults& programs, Root& root, Reports& reports);

}  // namespace sim

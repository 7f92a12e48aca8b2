#pragma once

namespace sim {

class Phone;

// The control command by which the phone's parts in the service's process fail on purpose:
//   fault program NAME fail STATUS   the shell's program ends with that status (1 to 255)
//   fault program NAME hang          it waits before it runs
//   fault program NAME run           neither any more; those that wait go on
//   fault disk full|free             what is written from now on finds no room
//   fault reports refuse|take        the reporting library
void addFaultCommand(Phone& phone);

}  // namespace sim

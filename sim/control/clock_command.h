#pragma once

namespace sim {

class Control;

// The command "clock" of the phone's control socket, on the clock of the process that serves it:
//   advance SECONDS   moves it on; a fraction is taken
//   await-sleepers N  waits until so many threads sleep on it; an error after 20 s of real time
void addClockCommand(Control& control);

}  // namespace sim

#pragma once

namespace sim {

class Phone;

// The control commands that play the phone's kernel:
//   audio CMD TEXT                        one packet of the audio module
//   audio-await                           waits for the service to register; an error after 10 s
//   audio-raw HEX                         these bytes, as one netlink datagram
//   audio-answer family|none|nothing      how the family look-up is answered from now on
//   audio-received                        what the service has sent, one datagram a line, in hex
//   display ID PAYLOAD                    one record of the display driver
void addKernelCommands(Phone& phone);

}  // namespace sim

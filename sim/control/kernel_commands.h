#pragma once

namespace sim {

class Control;
class DisplayKernel;
class GenericNetlink;
class Gpu;

// The control commands that play the phone's kernel:
//   audio CMD TEXT                        sends one packet of the audio module
//   audio-await                           waits for the service to register; an error after 10 s
//   audio-raw HEX                         sends these bytes as one netlink datagram
//   audio-answer family|none|nothing      how family look-ups are answered from here on
//   audio-received                        the datagrams the service has sent, one a text, in hex
void addAudioCommands(Control& control, GenericNetlink& netlink);

//   display ID PAYLOAD                    sends one record of the display driver
void addDisplayCommand(Control& control, DisplayKernel& display);

// "gpu", followed by an operation of Gpu (sim/kernel/gpu.h):
//   fault [--hash H] [--timestamp T] [--size BYTES] [--control C]
//   control C                             the text of snapshot_control from here on
//   vanish [--after BYTES]
//   appear
//   unreadable timestamp|snapshot_control|snapshot_hashid|dump
//   short-reads BYTES
//   await-reader                          waits for Gpu::hasReader(); an error after 60 s
void addGpuCommand(Control& control, Gpu& gpu);

}  // namespace sim

#pragma once

namespace sim {

class Phone;

// Registers the phone's own stand-in programs with its shell: logcat, dmesg, dumpsys, perfetto.
void addPrograms(Phone& phone);

}  // namespace sim

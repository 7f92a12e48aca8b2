#pragma once

#include <string>

// The phone of a process that names none: a program that uses the phone's libraries alone, as on a
// phone, reaches it by its first call.

namespace sim {

class Phone;

// The folder that the environment's PELTO_PHONE names, else $XDG_RUNTIME_DIR/pelto-phone, else
// /tmp/pelto-phone-UID.
std::string defaultFolder();

// Opens the phone in that folder. Ends the process where there is none, or one that Phone::open()
// refuses: exit code 3 after one line on stderr. Threads: any; all get the same phone.
Phone& openDefaultPhone();

}  // namespace sim

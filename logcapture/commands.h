#pragma once

#include <utils/String8.h>

namespace android {

// Runs the command lines of the capture classes, which contain text from other processes. `tag` is
// the log tag of the calling class.

// Whether the command line contains one of "|", "&", ";", "`" and "$"; logs an error line if so.
bool holdsShellCharacter(const char* tag, const String8& command);

// Runs the command unless it contains a shell character. Returns the result of system(), or 0 when
// the command was refused, which is logged.
int runGuarded(const char* tag, const String8& command);

// As runGuarded(), with a debug line when the command fails.
void runReported(const char* tag, const String8& command);

}  // namespace android

#pragma once

#include <utils/String8.h>

namespace android {

// How the capture classes run command lines that hold outside text. Each logs under its own tag.

// Whether the command line holds one of "|", "&", ";", "`" and "$"; then there is one error line.
bool holdsShellCharacter(const char* tag, const String8& command);

// Runs the command unless it holds a shell character. Returns what system() did, 0 when it did not
// run: the refusal has its line already.
int runGuarded(const char* tag, const String8& command);

// The same, with a debug line when the command fails.
void runReported(const char* tag, const String8& command);

}  // namespace android

#pragma once

#include <string>
#include <vector>

#include "sim/base/fd.h"

namespace sim {

class Root;

// The workstation's programs that the phone's shell may run: tar, rm, cp, chmod, touch. They are
// started without a shell, with a fixed environment, in the phone's "/", every path mapped below
// it and only with the options listed for them.
//
// A path is handed over as the descriptor of its directory and its last component, so nothing done
// to the directories above it meanwhile leads the program astray. A last component that is a link,
// neither a file nor a directory, or (where it is written) a file of several names is refused.
// Two gaps remain: a file that another process replaces by a link between that check and the
// program's own open is followed by chmod, touch and tar's archive; and chmod -R changes a file
// that has another name outside the tree.

// What a program is started with.
struct HostCommand {
    struct Directory {
        Fd fd;             // O_PATH; the program inherits it under this number
        std::string name;  // what it is called instead, "" or ending in "/"
    };
    std::vector<std::string> arguments;
    std::string complaints;  // a line for each operand left out, which makes its exit status 1
    std::vector<Directory> directories;

    // Puts the directories' names in place of the descriptors' paths.
    void nameDirectories(std::string& text) const;
};

// The command that `words` (after the program's name) become. Returns false and says why when
// an option or a path is refused; `program` must be one of the five.
bool hostArguments(const Root& root, const std::string& program,
                   const std::vector<std::string>& words, HostCommand& command, std::string& why);

bool isHostProgram(const std::string& name);

// The status it ends with when there is no room for what it writes; 0 if it writes nothing.
int statusOnFullDisk(const std::string& program);

// Runs it to its end; a wait status. What it says on its error output goes to the phone's log,
// the first page of it.
int runHostProgram(const Root& root, const HostCommand& command, int outputFd);

}  // namespace sim

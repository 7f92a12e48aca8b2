#pragma once

#include <string>
#include <vector>

#include "sim/base/fd.h"

namespace sim {

class Root;

// The arguments with which a program of the workstation is started (see workstation_programs.h):
// every path mapped below the phone's "/", only the options listed for the program.
//
// A path becomes the descriptor of its directory and its last component, so that changes to the
// directories above it do not lead the program astray. A last component is refused when it is a
// link, neither a file nor a directory, or a file of several names that is to be written.
// Two gaps remain: a file that another process replaces by a link between that check and the
// program's own open is followed by chmod, touch and tar's archive; and chmod -R changes a file
// that has another name outside the tree.
struct WorkstationCommand {
    struct Directory {
        Fd fd;             // O_PATH; the program inherits it under this number
        std::string name;  // its name in messages, "" or ending in "/"
    };
    std::vector<std::string> arguments;
    std::string complaints;  // a line for each operand left out; then the exit status is 1 at least
    std::vector<Directory> directories;

    // Replaces the descriptors' paths in a program's messages by the directories' names.
    void nameDirectories(std::string& text) const;
};

// The names of the programs: tar, rm, cp, chmod and touch.
std::vector<std::string> workstationPrograms();
// Whether it is the name of one.
bool isWorkstationProgram(const std::string& name);

// Makes the command of a workstation program from the words after its name. Returns false and says
// why when an option or a path is refused.
bool workstationArguments(const Root& root, const std::string& program,
                          const std::vector<std::string>& words, WorkstationCommand& command,
                          std::string& why);

}  // namespace sim

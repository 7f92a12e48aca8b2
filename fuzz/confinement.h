#pragma once

#include <fcntl.h>
#include <limits.h>
#include <stdlib.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <map>
#include <set>
#include <string>

#include "fuzz/fuzz_phone.h"
#include "sim/shell/workstation_command.h"

// Checks the arguments with which the phone's shell would start a program of the workstation.
class Confinement {
  public:
    Confinement(std::string fs, const sim::WorkstationCommand& command)
        : mFs(std::move(fs)), mCommand(command), mProgram(command.arguments.at(0)) {}

    // Aborts unless every directory handed to the program lies in the phone's files and each
    // argument is an option of the table or leads to a last component in one of them.
    void check() {
        for (const auto& directory : mCommand.directories) checkDirectory(directory.fd.get());
        bool needsMode = mProgram == "chmod";
        for (size_t i = 1; i < mCommand.arguments.size(); ++i) {
            const std::string& argument = mCommand.arguments[i];
            if (options().count(argument) != 0) continue;
            if (needsMode && isOctal(argument)) {
                needsMode = false;
            } else if (mProgram == "tar" && startsWith(argument, "--transform=")) {
                checkTransform(argument);
            } else {
                checkOperand(argument);
            }
        }
    }

  private:
    const std::set<std::string>& options() const {
        static const auto& all = *new std::map<std::string, std::set<std::string>>{
            {"tar", {"--no-unquote", "-P", "-czf"}},
            {"rm", {"-f", "-r", "-rf", "-fr"}},
            {"cp", {"-P", "--remove-destination", "-r"}},
            {"chmod", {"-R"}},
            {"touch", {}},
        };
        return all.at(mProgram);
    }

    void checkDirectory(int fd) const {
        char path[PATH_MAX];
        const std::string link = "/proc/self/fd/" + std::to_string(fd);
        const ssize_t size = readlink(link.c_str(), path, sizeof(path));
        const std::string found(path, size > 0 ? static_cast<size_t>(size) : 0);
        require(found == mFs || startsWith(found, mFs + "/"), found + " lies in the phone's files");
    }

    // "/proc/self/fd/N/NAME" with N one of the directories and NAME a single component.
    void checkOperand(const std::string& argument) const {
        const std::string member = "--add-file=";
        const bool isMember = mProgram == "tar" && startsWith(argument, member);
        const std::string path = argument.substr(isMember ? member.size() : 0);
        const int fd = directoryOf(path);
        std::string name = path.substr(path.find('/', 14) + 1);
        if (name.size() > 1 && name.back() == '/') name.pop_back();  // of a directory to be made
        require(!name.empty() && name.find('/') == name.npos && name != "..",
                argument + " is one component");
        require(name != "." || mProgram != "rm", "rm gets no directory by its descriptor");
        struct stat status {};
        const bool there = fstatat(fd, name.c_str(), &status, AT_SYMLINK_NOFOLLOW) == 0;
        if (!there || isMember || mProgram == "rm") return;
        require(S_ISREG(status.st_mode) || S_ISDIR(status.st_mode), argument + " leads nowhere");
    }

    void checkTransform(const std::string& argument) const {
        const std::string start = "--transform=s|^";
        require(startsWith(argument, start), "the transformation replaces a prefix");
        directoryOf(argument.substr(start.size()));
        int bars = 0;
        for (size_t i = start.size(); i < argument.size(); ++i) {
            if (argument[i] == '\\')
                ++i;
            else if (argument[i] == '|')
                ++bars;
        }
        require(bars == 2 && argument.substr(argument.size() - 2) == "|S", "and does no more");
    }

    // The number of the directory that the path begins with.
    int directoryOf(const std::string& path) const {
        for (const auto& directory : mCommand.directories) {
            const int fd = directory.fd.get();
            if (startsWith(path, "/proc/self/fd/" + std::to_string(fd) + "/")) return fd;
        }
        require(false, mProgram + " may not be given " + path);
        return -1;
    }

    static bool isOctal(const std::string& word) {
        return word.size() >= 3 && word.size() <= 4 &&
               word.find_first_not_of("01234567") == word.npos;
    }
    static bool startsWith(const std::string& text, const std::string& start) {
        return text.compare(0, start.size(), start) == 0;
    }

    const std::string mFs;
    const sim::WorkstationCommand& mCommand;
    const std::string& mProgram;
};

#include "sim/shell/workstation_command.h"

#include <errno.h>
#include <fcntl.h>
#include <string.h>
#include <sys/stat.h>

#include <algorithm>
#include <initializer_list>
#include <string_view>

#include "sim/base/root.h"

namespace sim {
namespace {

// The workstation's path to the open directory, valid even when it has been moved.
std::string pathOf(const Fd& fd) {
    return "/proc/self/fd/" + std::to_string(fd.get()) + '/';
}

bool sameFile(const Fd& a, const Fd& b) {
    struct stat first {
    }, second{};
    return fstat(a.get(), &first) == 0 && fstat(b.get(), &second) == 0 &&
           first.st_ino == second.st_ino && first.st_dev == second.st_dev;
}

class Arguments {
  public:
    Arguments(const Root& root, const std::vector<std::string>& words, WorkstationCommand& command,
              std::string& why)
        : mRoot(root), mWords(words), mCommand(command), mOut(command.arguments), mWhy(why) {}

    bool rm() {
        if (!options({"-f", "-r", "-rf", "-fr"})) return false;
        const bool force = std::any_of(mWords.begin(), mWords.begin() + mNext,
                                       [](auto& word) { return word.find('f') != word.npos; });
        for (; mNext < mWords.size(); ++mNext) {
            const std::string& word = mWords[mNext];
            Root::Place place;
            int error = mRoot.resolve(word, place);
            const mode_t mode = error == 0 ? statusOf(place).st_mode : 0;
            if (place.directory && mode != 0 && !S_ISDIR(mode))
                error = S_ISLNK(mode) ? ELOOP : ENOTDIR;
            if (force && (error == ENOENT || error == ENOTDIR)) continue;
            if (error != 0) return refuse(word, strerror(error));
            // Checks the word as typed: "x/.." resolves to x's parent, which rm would remove.
            if (place.path == "." || endsInDots(word)) return refuse(word, "cannot be removed");
            if (!hand(place.parent, '/' + parentPath(place), place.name)) return false;
        }
        return true;
    }

    bool cp() {
        // A link below a source is copied as a link; a link at the destination is replaced.
        mOut.insert(mOut.end(), {"-P", "--remove-destination"});
        if (!options({"-r"})) return false;
        // Reports a source that is refused and copies the rest, as cp itself does.
        size_t refused = 0;
        const size_t sources = mNext < mWords.size() ? mWords.size() - mNext - 1 : 0;
        for (size_t i = 0; i < sources; ++i) {
            if (path(mWords[mNext++], kRead)) continue;
            mCommand.complaints += "cp: " + mWhy + '\n';
            ++refused;
        }
        if (refused == 0) return paths();
        // With several sources the destination must be a directory, even if one source remains.
        return refused < sources && isDirectory(mWords[mNext]) && paths();
    }

    bool chmod() {
        if (!options({"-R"})) return false;
        if (mNext == mWords.size() || !isMode(mWords[mNext])) return refuse("mode", "is not octal");
        mOut.push_back(mWords[mNext++]);
        return paths();
    }

    bool touch() { return options({}) && paths(); }

    // Takes -czf ARCHIVE [-C DIRECTORY] NAME...
    bool tar() {
        if (mWords.size() < 2 || mWords[0] != "-czf") return refuse("tar", "takes -czf ARCHIVE");
        Root::Place archive;
        struct stat status {};
        if (!place(mWords[1], kWritten, archive, status)) return false;
        if (archive.directory) return refuse(mWords[1], strerror(EISDIR));
        mOut.insert(mOut.end(), {"--no-unquote", "-P", "-czf"});
        if (!hand(archive.parent, '/' + parentPath(archive), archive.name)) return false;
        std::string directory = "/";
        for (mNext = 2; mNext < mWords.size(); ++mNext) {
            const std::string& word = mWords[mNext];
            if (word == "-C" && mNext + 1 < mWords.size()) {
                const std::string& next = mWords[++mNext];
                directory = (next[0] == '/' ? "" : directory) + next + "/";
            } else if (!word.empty() && word[0] == '-') {
                return refuse(word, "is no option here");
            } else if (!member(directory, word)) {
                return false;
            }
        }
        nameMembers();
        return true;
    }

  private:
    enum Use { kRead, kWritten };

    bool refuse(const std::string& what, const char* reason) {
        mWhy = what + ": " + reason;
        return false;
    }

    // Takes the allowed options in front; refuses any other word with a "-" at its start.
    bool options(std::initializer_list<std::string_view> allowed) {
        while (mNext < mWords.size() &&
               std::find(allowed.begin(), allowed.end(), mWords[mNext]) != allowed.end())
            mOut.push_back(mWords[mNext++]);
        auto other = std::find_if(mWords.begin() + mNext, mWords.end(),
                                  [](const std::string& word) { return word[0] == '-'; });
        return other == mWords.end() || refuse(*other, "is no option here");
    }

    bool isDirectory(const std::string& word) {
        Root::Place where;
        const bool found = mRoot.resolve(word, where) == 0 && S_ISDIR(statusOf(where).st_mode);
        return found || refuse(word, strerror(ENOTDIR));
    }

    // Takes the remaining words as paths that are written to.
    bool paths() {
        for (; mNext < mWords.size(); ++mNext) {
            if (!path(mWords[mNext], kWritten)) return false;
        }
        return true;
    }

    bool path(const std::string& word, Use use) {
        Root::Place where;
        struct stat status {};
        if (!place(word, use, where, status)) return false;
        if (use == kWritten && S_ISDIR(status.st_mode))
            return handSelf(where, '/' + where.path + '/');
        const bool missing = status.st_mode == 0;
        return hand(where.parent, '/' + parentPath(where),
                    where.name + (missing && where.directory ? "/" : ""));
    }

    // Resolves a path; refuses a link, a FIFO or device, and writing a file that has another name.
    bool place(const std::string& word, Use use, Root::Place& where, struct stat& status) {
        if (int error = mRoot.resolve(word, where)) return refuse(word, strerror(error));
        status = statusOf(where);
        if (status.st_mode == 0 || S_ISDIR(status.st_mode)) return true;
        if (S_ISLNK(status.st_mode)) return refuse(word, strerror(ELOOP));
        if (!S_ISREG(status.st_mode)) return refuse(word, strerror(ENXIO));
        if (where.directory) return refuse(word, strerror(ENOTDIR));
        return use == kRead || status.st_nlink == 1 || refuse(word, strerror(EMLINK));
    }

    // Takes a member of the archive, which keeps its name below -C. A link is archived as a link,
    // but refused when its path ends in "/".
    bool member(const std::string& directory, const std::string& word) {
        Root::Place base, where;
        if (int error = mRoot.resolve(word[0] == '/' ? "/" : directory, base))
            return refuse(directory, strerror(error));
        if (int error = mRoot.resolve(word[0] == '/' ? word : directory + word, where))
            return refuse(word, strerror(error));
        if (where.directory && S_ISLNK(statusOf(where).st_mode))
            return refuse(word, strerror(ELOOP));
        if (where.path == base.path) return handSelf(where, "", "--add-file=");
        std::string name = parentPath(where);
        const std::string from = base.path == "." ? "" : base.path + '/';
        if (name.compare(0, from.size(), from) == 0) name.erase(0, from.size());
        return hand(where.parent, name, where.name, "--add-file=");
    }

    // Has tar replace the descriptors' paths by the directories' names in the members' names.
    void nameMembers() {
        for (const WorkstationCommand::Directory& directory : mCommand.directories) {
            std::string name;
            for (char c : directory.name) {
                if (c == '\\' || c == '&' || c == '|') name += '\\';
                name += c;
            }
            mOut.push_back("--transform=s|^" + pathOf(directory.fd) + '|' + name + "|S");
        }
    }

    // Adds `name` in a directory as an operand; messages call the directory `directoryName`.
    bool hand(const Fd& fd, const std::string& directoryName, const std::string& name,
              const char* option = "") {
        auto& all = mCommand.directories;
        auto known =
            std::find_if(all.begin(), all.end(), [&](const WorkstationCommand::Directory& other) {
                return other.name == directoryName && sameFile(other.fd, fd);
            });
        if (known == all.end()) {
            Fd copy(fcntl(fd.get(), F_DUPFD_CLOEXEC, STDERR_FILENO + 1));
            if (!copy.valid()) return refuse(directoryName, strerror(errno));
            known = all.insert(all.end(),
                               WorkstationCommand::Directory{std::move(copy), directoryName});
        }
        mOut.push_back(option + pathOf(known->fd) + name);
        return true;
    }

    // Adds a directory itself as an operand.
    bool handSelf(const Root::Place& place, const std::string& name, const char* option = "") {
        Fd fd(openat(place.parent.get(), place.name.c_str(),
                     O_PATH | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
        return fd.valid() ? hand(fd, name, ".", option) : refuse(place.path, strerror(errno));
    }

    // The place's status; its mode is 0 when nothing is there.
    static struct stat statusOf(const Root::Place& place) {
        struct stat status {};
        fstatat(place.parent.get(), place.name.c_str(), &status, AT_SYMLINK_NOFOLLOW);
        return status;
    }

    static bool isMode(std::string_view word) {
        if (word.size() == 4 && word[0] == '0') word.remove_prefix(1);
        return word.size() == 3 && word.find_first_not_of("01234567") == word.npos;
    }

    static bool endsInDots(std::string_view word) {
        while (!word.empty() && word.back() == '/') word.remove_suffix(1);
        const std::string_view last = word.substr(word.rfind('/') + 1);
        return last == "." || last == "..";
    }

    // The parent's path below the root: "", or ending in "/".
    static std::string parentPath(const Root::Place& place) {
        return place.path.substr(0, place.path.size() - place.name.size());
    }

    const Root& mRoot;
    const std::vector<std::string>& mWords;
    WorkstationCommand& mCommand;
    std::vector<std::string>& mOut;
    std::string& mWhy;
    size_t mNext = 0;
};

struct HostProgram {
    const char* name;
    bool (Arguments::*read)();
};
constexpr HostProgram kPrograms[] = {
    {"chmod", &Arguments::chmod}, {"cp", &Arguments::cp},       {"rm", &Arguments::rm},
    {"tar", &Arguments::tar},     {"touch", &Arguments::touch},
};

const HostProgram* find(const std::string& name) {
    for (const HostProgram& program : kPrograms) {
        if (name == program.name) return &program;
    }
    return nullptr;
}

}  // namespace

std::vector<std::string> workstationPrograms() {
    std::vector<std::string> names;
    for (const HostProgram& program : kPrograms) names.emplace_back(program.name);
    return names;
}

bool isWorkstationProgram(const std::string& name) {
    return find(name) != nullptr;
}

bool workstationArguments(const Root& root, const std::string& program,
                          const std::vector<std::string>& words, WorkstationCommand& command,
                          std::string& why) {
    command.arguments.assign(1, program);
    return (Arguments(root, words, command, why).*find(program)->read)();
}

void WorkstationCommand::nameDirectories(std::string& text) const {
    for (const Directory& directory : directories) {
        const std::string path = pathOf(directory.fd);
        for (size_t at = 0; (at = text.find(path, at)) != text.npos; at += directory.name.size())
            text.replace(at, path.size(), directory.name);
    }
}

}  // namespace sim

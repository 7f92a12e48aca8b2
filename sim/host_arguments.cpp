#include <errno.h>
#include <fcntl.h>
#include <string.h>

#include <algorithm>
#include <initializer_list>
#include <string_view>

#include "sim/host_programs.h"
#include "sim/root.h"

namespace sim {
namespace {

class Arguments {
  public:
    Arguments(const Root& root, const std::vector<std::string>& words,
              std::vector<std::string>& out, std::string& why)
        : mRoot(root), mWords(words), mOut(out), mWhy(why) {}

    bool rm() {
        if (!options({"-f", "-r", "-rf", "-fr"})) return false;
        const bool force = std::any_of(mWords.begin(), mWords.begin() + mNext,
                                       [](auto& word) { return word.find('f') != word.npos; });
        for (; mNext < mWords.size(); ++mNext) {
            const std::string& word = mWords[mNext];
            Root::Place place;
            const int error = mRoot.resolve(word, place);
            if (error == ENOENT && force) continue;
            if (error != 0) return refuse(word, strerror(error));
            // Asked of the word: "x/.." is "the directory above", and never meant.
            if (place.path == "." || endsInDots(word)) return refuse(word, "cannot be removed");
            if (place.directory && isLink(place)) return refuse(word, strerror(ELOOP));
            mOut.push_back(operand(place));
        }
        return true;
    }

    bool cp() {
        // A link below a source is copied as a link, one in the way of a copy is replaced by it.
        mOut.insert(mOut.end(), {"-P", "--remove-destination"});
        return options({"-r"}) && paths();
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
        if (!place(mWords[1], archive)) return false;
        if (archive.directory) return refuse(mWords[1], strerror(EISDIR));
        // The "./" of the operand also keeps a colon in it from naming a machine.
        mOut.insert(mOut.end(), {"--no-unquote", "-czf", operand(archive)});
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
        return true;
    }

  private:
    bool refuse(const std::string& what, const char* reason) {
        mWhy = what + ": " + reason;
        return false;
    }

    // The options in front; any other word that starts with "-" is refused wherever it stands.
    bool options(std::initializer_list<std::string_view> allowed) {
        while (mNext < mWords.size() &&
               std::find(allowed.begin(), allowed.end(), mWords[mNext]) != allowed.end())
            mOut.push_back(mWords[mNext++]);
        auto other = std::find_if(mWords.begin() + mNext, mWords.end(),
                                  [](const std::string& word) { return word[0] == '-'; });
        return other == mWords.end() || refuse(*other, "is no option here");
    }

    // What is left of the words, each a path that must not be a link.
    bool paths() {
        for (; mNext < mWords.size(); ++mNext) {
            Root::Place where;
            if (!place(mWords[mNext], where)) return false;
            mOut.push_back(operand(where));
        }
        return true;
    }

    bool place(const std::string& word, Root::Place& where) {
        if (int error = mRoot.resolve(word, where)) return refuse(word, strerror(error));
        return !isLink(where) || refuse(word, strerror(ELOOP));
    }

    // A member keeps the name it has below -C; it may be a link, which is archived as one.
    bool member(const std::string& directory, const std::string& word) {
        Root::Place base, where;
        if (int error = mRoot.resolve(word[0] == '/' ? "/" : directory, base))
            return refuse(directory, strerror(error));
        if (int error = mRoot.resolve(word[0] == '/' ? word : directory + word, where))
            return refuse(word, strerror(error));
        std::string name = where.path, from = base.path == "." ? "" : base.path + '/';
        if (name == base.path) {
            name = ".";
        } else if (name.compare(0, from.size(), from) == 0) {
            name.erase(0, from.size());
        } else {
            from.clear();
        }
        mOut.insert(mOut.end(),
                    {"-C", mRoot.directory() + '/' + from, "--add-file=" + std::move(name)});
        return true;
    }

    static bool isLink(const Root::Place& place) {
        struct stat status {};
        return fstatat(place.parent.get(), place.name.c_str(), &status, AT_SYMLINK_NOFOLLOW) == 0 &&
               S_ISLNK(status.st_mode);
    }

    static bool isMode(const std::string& word) {
        return word.size() >= 3 && word.size() <= 4 &&
               word.find_first_not_of("01234567") == word.npos;
    }

    static bool endsInDots(std::string_view word) {
        while (!word.empty() && word.back() == '/') word.remove_suffix(1);
        const std::string_view last = word.substr(word.rfind('/') + 1);
        return last == "." || last == "..";
    }

    // From the phone's "/", and never taken for an option.
    static std::string operand(const Root::Place& place) {
        return "./" + place.path + (place.directory ? "/" : "");
    }

    const Root& mRoot;
    const std::vector<std::string>& mWords;
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

bool isHostProgram(const std::string& name) {
    return find(name) != nullptr;
}

bool hostArguments(const Root& root, const std::string& program,
                   const std::vector<std::string>& words, std::vector<std::string>& arguments,
                   std::string& why) {
    arguments.assign(1, program);
    return (Arguments(root, words, arguments, why).*find(program)->read)();
}

}  // namespace sim

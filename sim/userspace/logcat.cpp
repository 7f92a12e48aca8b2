#include "sim/userspace/logcat.h"

#include <fcntl.h>
#include <string.h>
#include <sys/inotify.h>
#include <sys/stat.h>

#include <deque>

#include "sim/base/text.h"

namespace sim {
namespace {

constexpr int64_t kMaxLines = 999999999;

std::string_view nextField(std::string_view& text) {
    const size_t start = std::min(text.find_first_not_of(' '), text.size());
    const size_t end = std::min(text.find(' ', start), text.size());
    const std::string_view field = text.substr(start, end - start);
    text.remove_prefix(end);
    return field;
}

// The priority of a letter; 0 for a letter that names none.
int priorityOf(char letter) {
    static constexpr std::string_view kLetters = "vdiwefs";
    const size_t found = kLetters.find(static_cast<char>(letter | 0x20));
    return found == kLetters.npos ? 0 : kVerbose + static_cast<int>(found);
}

}  // namespace

bool LogLine::parse(std::string_view line) {
    for (int field = 0; field < 4; ++field) {  // date, time, pid, tid
        if (nextField(line).empty()) return false;
    }
    const std::string_view letter = nextField(line);
    const size_t colon = line.find(": ");
    if (letter.size() != 1 || line.empty() || colon == line.npos) return false;
    priority = priorityOf(letter[0]);
    tag = line.substr(1, colon - 1);
    tag.remove_suffix(tag.size() - (tag.find_last_not_of(' ') + 1));
    message = line.substr(colon + 2);
    return true;
}

std::string LogcatOptions::parse(const std::vector<std::string>& words) {
    for (size_t i = 0; i < words.size(); ++i) {
        const std::string& word = words[i];
        const std::string value = i + 1 < words.size() ? words[i + 1] : "";
        if (word == "-d") {
            dump = true;
        } else if (word == "-c") {
            clear = true;
        } else if (word == "-s") {
            mOthers = kSilent;
        } else if (word == "-v") {
            if (value != "threadtime") return "-v takes threadtime";
            ++i;
        } else if (word == "-t") {
            const auto lines = numberIn(value, 0, kMaxLines);
            if (!lines) return "-t takes a number of lines";
            last = static_cast<size_t>(*lines);
            dump = true;
            ++i;
        } else if (word[0] == '-') {
            return word + " is no option";
        } else if (std::string wrong = addFilter(word); !wrong.empty()) {
            return wrong;
        }
    }
    return "";
}

std::string LogcatOptions::addFilter(std::string_view text) {
    const size_t colon = text.rfind(':');
    const std::string_view name = text.substr(0, colon);
    // A bare "*" stands for "*:d", a bare tag for all its lines.
    int priority = name == "*" ? kDebug : kVerbose;
    if (colon != text.npos) {
        const std::string_view letter = text.substr(colon + 1);
        priority = letter.size() == 1 ? priorityOf(letter[0]) : 0;
    }
    if (name.empty() || priority == 0) return std::string(text) + " is no filter";
    if (name == "*") {
        mOthers = priority;
    } else {
        mTags[std::string(name)] = priority;
    }
    return "";
}

bool LogcatOptions::passes(std::string_view text) const {
    LogLine line;
    if (!line.parse(text)) return false;
    auto named = mTags.find(line.tag);
    return line.priority >= (named == mTags.end() ? mOthers : named->second);
}

LogReader::LogReader(const std::string& directory, bool follows) : mDirectory(directory) {
    if (follows) {
        mWatch = Fd(inotify_init1(IN_CLOEXEC | IN_NONBLOCK));
        inotify_add_watch(mWatch.get(), mDirectory.c_str(), IN_MODIFY | IN_CREATE | IN_MOVED_TO);
    }
    openFiles();
}

void LogReader::openFiles() {
    const Fd directory(open(mDirectory.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    const FileLock lock(directory.get());  // no rotation between the two
    mOld = Fd(open((mDirectory + "/main.old").c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC));
    mMain = Fd(open((mDirectory + "/main").c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC));
}

bool LogReader::mainWasReplaced() const {
    struct stat now {
    }, mine{};
    return stat((mDirectory + "/main").c_str(), &now) == 0 &&
           (fstat(mMain.get(), &mine) < 0 || now.st_ino != mine.st_ino);
}

void LogReader::read(const std::function<void(std::string_view)>& take) {
    if (mOld.valid()) {
        std::swap(mOld, mMain);
        drain(take);
        std::swap(mOld, mMain);
        mOld = Fd();
        mPartial.clear();  // its last line was cut short and is not continued in the next file
    }
    for (drain(take); mainWasReplaced(); drain(take)) {
        drain(take);  // lines written before it was replaced
        mMain = Fd(open((mDirectory + "/main").c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC));
        mPartial.clear();
    }
}

void LogReader::drain(const std::function<void(std::string_view)>& take) {
    struct stat status {};
    if (fstat(mMain.get(), &status) == 0 && status.st_size < lseek(mMain.get(), 0, SEEK_CUR)) {
        lseek(mMain.get(), 0, SEEK_SET);  // truncated: starts again
        mPartial.clear();
    }
    for (std::string block; !(block = readAll(mMain.get(), 1 << 16)).empty();) {
        mPartial += block;
        size_t start = 0;
        for (size_t end; (end = mPartial.find('\n', start)) != mPartial.npos; start = end + 1)
            take(std::string_view(mPartial).substr(start, end - start));
        mPartial.erase(0, start);
    }
}

bool LogReader::wait(int timeoutMillis) {
    return awaitChange(mWatch, mDirectory, timeoutMillis);
}

int runLogcat(const std::string& directory, const LogcatOptions& options, int outputFd) {
    LogReader reader(directory, !options.dump);
    bool open = true;
    auto print = [&](std::string line) {
        line += '\n';
        open = open && writeAll(outputFd, line.data(), line.size());
    };
    std::deque<std::string> kept;
    reader.read([&](std::string_view line) {
        if (!options.passes(line)) return;
        kept.emplace_back(line);
        if (kept.size() > options.last) kept.pop_front();
    });
    print("--------- beginning of main");
    for (std::string& line : kept) print(std::move(line));
    while (open && !options.dump) {
        if (!reader.wait(-1)) return 1;
        reader.read([&](std::string_view line) {
            if (options.passes(line)) print(std::string(line));
        });
    }
    return open ? 0 : 1;
}

}  // namespace sim

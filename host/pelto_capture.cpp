// Captures logs into an archive:  pelto-capture [--phone DIR] INFO
// The log-capture thread's steps, once and in their order, on this program's own thread.
#include <stdio.h>
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <map>
#include <memory>

#include "host/service_host.h"
#include "logcapture/KelvoPeltoLogThread.h"
#include "logcapture/log_information.h"
#include "sim/phone.h"
#include "sim/root.h"

namespace {

struct Options {
    HostOptions phone;
    std::string information;
};

constexpr char kExitCodes[] =
    "Exit codes:\n"
    "  0  the archive was made; its path on the phone is printed\n"
    "  1  no archive appeared; the phone's log, KelvoPeltoLogThread, says why\n"
    "  2  wrong usage\n"
    "  3  the folder is missing or is no phone's\n";

int complain(int code, const std::string& text) {
    fprintf(stderr, "pelto-capture: %s\n", text.c_str());
    return code;
}

// Returns -1 when there is something to do.
int parse(int argc, char** argv, Options* options) {
    CLI::App app("Captures a simulated phone's logs into a dated archive.", "pelto-capture");
    app.footer(kExitCodes);
    app.failure_message([](const CLI::App*, const CLI::Error& error) {
        return std::string("pelto-capture: ") + error.what() + "; see pelto-capture --help\n";
    });
    app.add_option("--phone", options->phone.phoneFolder, "Folder of the phone")
        ->required()
        ->envname("PELTO_PHONE")
        ->type_name("DIR")
        ->take_last();
    app.add_option("INFO", options->information,
                   "Event id, log types, capture directory, archive directory, archive name, with "
                   "\",\" between; pelto capture ID --print makes one")
        ->required();
    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError& error) {
        return app.exit(error) == 0 ? kHostStopped : kHostUsage;
    }
    return -1;
}

// The files whose paths begin so and end as an archive's, and when each was last written.
std::map<std::string, int64_t> archives(const std::string& start) {
    const sim::Root& root = sim::Phone::get().root();
    const size_t name = start.rfind('/') + 1;
    const std::string directory = start.substr(0, name);
    std::map<std::string, int64_t> found;
    const std::unique_ptr<DIR, int (*)(DIR*)> open(
        root.opendir(directory.empty() ? "/" : directory.c_str()), closedir);
    while (const dirent* entry = open ? readdir(open.get()) : nullptr) {
        const std::string path = directory + entry->d_name;
        struct stat status {};
        if (path.rfind(start, 0) != 0 || root.stat(path.c_str(), &status) != 0) continue;
        found[path] = int64_t{status.st_mtim.tv_sec} * 1000000000 + status.st_mtim.tv_nsec;
    }
    return found;
}

int capture(const std::string& information) {
    android::LogInformation fields;
    if (!android::splitLogInformation(android::String8(information), fields)) {
        return complain(kHostUsage, "INFO takes five fields with ',' between; see --help");
    }
    const std::string start =
        std::string(fields[android::kTarPath].c_str()) + fields[android::kTarName].c_str() + "@";
    const auto before = archives(start);
    const android::sp<android::KelvoPeltoLogThread> steps =
        new android::KelvoPeltoLogThread(android::String8(information));
    steps->doLogCaputure();
    steps->doCompressFile();
    steps->deleteFiles();
    for (const auto& [path, written] : archives(start)) {
        const auto old = before.find(path);
        if (old != before.end() && old->second == written) continue;
        puts(path.c_str());
        return kHostStopped;
    }
    return complain(kHostFailed,
                    "no archive appeared; the phone's log says why: pelto logcat -d "
                    "KelvoPeltoLogThread");
}

}  // namespace

int main(int argc, char** argv) {
    Options options;
    int code = parse(argc, argv, &options);
    if (code < 0) code = openPhone(options.phone) ? capture(options.information) : kHostNoPhone;
    fflush(nullptr);
    _exit(code);
}

// Captures logs into an archive:  pelto-capture [--phone DIR] INFO
// Runs the steps of the log-capture thread once, in their order, on the main thread.
#include <fcntl.h>
#include <stdio.h>
#include <string.h>
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <map>
#include <optional>

#include "commandline/exit_codes.h"
#include "commandline/parse.h"
#include "host/program_start.h"
#include "logcapture/KelvoPeltoLogThread.h"
#include "logcapture/log_information.h"
#include "sim/base/clock.h"
#include "sim/base/fd.h"
#include "sim/base/text.h"
#include "sim/phone.h"
#include "sim/shell/shell.h"
#include "sim/userspace/log.h"

namespace {

constexpr char kPack[] = "tar -czf ";
constexpr char kPackFailed[] = "cmds failed: tar -czf";

const std::map<int, std::string> kExitCodes = {
    {kHostStopped, "the archive was made; its path on the phone is printed"},
    {kHostFailed, "no whole archive was made; the phone's log, KelvoPeltoLogThread, says why"},
    {kHostUsage, "wrong usage"},
    {kHostNoPhone, "the folder is missing or is no phone's"},
};

int complain(int code, const std::string& text) {
    fprintf(stderr, "pelto-capture: %s\n", text.c_str());
    return code;
}

std::optional<int> parse(int argc, char** argv, std::string& phoneFolder,
                         std::string& information) {
    CLI::App app("Captures a simulated phone's logs into a dated archive.", "pelto-capture");
    commandline::listExitCodes(app, kExitCodes);
    app.add_option("--phone", phoneFolder, "Folder of the phone")
        ->required()
        ->envname("PELTO_PHONE")
        ->type_name("DIR")
        ->take_last();
    app.add_option("INFO", information,
                   "Event id, log types, capture directory, archive directory, archive name, with "
                   "\",\" between; pelto capture ID --print makes one")
        ->required();
    return commandline::parse(app, argc, argv);
}

// One capture at a time, each in a second of its own: an archive is named by its second, and two of
// one name would share it. The file holds the last capture's second.
class Turn {
  public:
    explicit Turn(const std::string& path)
        : mFile(open(path.c_str(), O_RDWR | O_CREAT | O_NOFOLLOW | O_CLOEXEC, 0600)) {
        constexpr std::chrono::seconds kPatience{60};
        if (!mFile.valid() || !sim::lockWithin(mFile.get(), kPatience)) return;
        mGot = true;
        const int64_t last = sim::numberIn(sim::readAll(mFile.get(), 20), 0, INT64_MAX).value_or(0);
        if (second() == last) sim::Clock::get().sleep(std::chrono::nanoseconds(untilNext()));
    }
    ~Turn() {
        const std::string text = std::to_string(second());
        if (mGot && ftruncate(mFile.get(), 0) == 0)
            pwrite(mFile.get(), text.data(), text.size(), 0);
    }
    Turn(const Turn&) = delete;
    Turn& operator=(const Turn&) = delete;

    // False with errno set when another capture goes on and on.
    bool got() const { return mGot; }

  private:
    static constexpr int64_t kSecond = 1000000000;
    static int64_t second() { return sim::Clock::get().wallNanos() / kSecond; }
    static int64_t untilNext() { return kSecond - sim::Clock::get().wallNanos() % kSecond; }

    const sim::Fd mFile;
    bool mGot = false;
};

struct Packing {
    std::string archive;  // its path in the packing command; "" when no such command was run
    std::string failure;  // the log line that says why packing failed; "" when it did not
};

Packing runSteps(const std::string& information) {
    Packing packing;
    sim::Phone& phone = sim::Phone::get();
    phone.log().observe([&](const sim::Log::Record& record) {
        if (record.message.rfind(kPackFailed, 0) == 0) packing.failure = record.message;
    });
    const android::sp<android::KelvoPeltoLogThread> steps =
        new android::KelvoPeltoLogThread(android::String8(information));
    steps->doLogCaputure();
    steps->doCompressFile();
    steps->deleteFiles();
    phone.log().observe(nullptr);
    for (const std::string& command : phone.shell().history()) {
        if (command.rfind(kPack, 0) != 0) continue;
        const std::string rest = command.substr(sizeof kPack - 1);
        packing.archive = rest.substr(0, rest.find(' '));
    }
    return packing;
}

int capture(const std::string& information) {
    android::LogInformation fields;
    if (!android::splitLogInformation(android::String8(information), fields)) {
        return complain(kHostUsage, "INFO takes five fields with ',' between; see --help");
    }
    const Turn turn(sim::Phone::get().runDir() + "/capture");
    if (!turn.got())
        return complain(kHostFailed, std::string("it is not its turn: ") + strerror(errno));
    const Packing packing = runSteps(information);
    // The file alone is no proof: a failed tar may leave one.
    if (packing.failure.empty() && !packing.archive.empty()) {
        puts(packing.archive.c_str());
        return kHostStopped;
    }
    const std::string why = packing.failure.empty() ? "" : " (" + packing.failure + ")";
    return complain(kHostFailed, "no whole archive was made" + why +
                                     "; the phone's log says more: pelto logcat -d "
                                     "KelvoPeltoLogThread");
}

}  // namespace

int main(int argc, char** argv) {
    std::string phoneFolder, information;
    std::optional<int> code = parse(argc, argv, phoneFolder, information);
    if (!code) code = openPhone(phoneFolder) ? capture(information) : kHostNoPhone;
    commandline::end(*code);
}

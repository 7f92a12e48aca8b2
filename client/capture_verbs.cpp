// Verbs that request an exception report or a dump by sending an event.
#include <sim/base/fd.h>
#include <sim/userspace/properties.h>
#include <stdio.h>
#include <string.h>
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <map>
#include <memory>

#include "client/report_wait.h"
#include "client/verbs.h"

namespace pelto {
namespace {

constexpr char kCaptureLogs[] = "pelto_event_multimedia_capture_logs";
constexpr char kAudioDumpsys[] = "pelto_event_multimedia_audio_dumpsys";
constexpr char kDumpKernelLog[] = "event_audio_detect_dump_log";

const std::map<std::string, int> kLogTypes = {
    {"android", 1}, {"kernel", 2}, {"tombstones", 4},      {"audio", 8},     {"trace", 16},
    {"pcm", 32},    {"qxdm", 64},  {"adsp-minidump", 128}, {"adsp-log", 256}};

constexpr char kNotSent[] = "the phone cannot be written, or the service takes no more clients";

struct Capture {
    std::string id;
    std::vector<std::string> logs{"android", "kernel"};
    std::string directory = "/data/persist_log/TMP/capture";
    std::string archives = "/data/persist_log/TMP/archives";
    std::string name = "capture";
    bool print = false;
    bool wait = false;
    double timeoutSeconds = 10;
};

// Refuses when the phone's disk is full: the service could neither write what it is asked for nor
// log that.
void needsSpace(const sim::Phone& phone) {
    const std::string probe = phone.runDir() + "/.space-" + std::to_string(getpid());
    if (!sim::writeFile(probe, std::string(4096, ' ')))
        throw Failure(kFailed, phone.folder() + " cannot be written: " + strerror(errno));
    unlink(probe.c_str());
}

int send(Client& client, const std::string& type, const std::string& info) {
    if (type.size() + 1 + info.size() > kMaxEventBytes) {
        throw Failure(kUsage, type + ": too long; with its type an event has at most " +
                                  std::to_string(kMaxEventBytes) + " bytes");
    }
    needsSpace(client.phone());
    client.call(type, [&](auto& calls) {
        return calls.setEvent(android::String8(type), android::String8(info));
    });
    return kDone;
}

// Refuses what the service would split wrongly: an empty field is skipped, "," and "$" end one.
const std::string& field(const std::string& text, const char* name) {
    if (text.empty() || text.find_first_of(",$") != std::string::npos) {
        throw Failure(kUsage, std::string("capture: ") + name + " '" + text +
                                  "' must have a character, and neither ',' nor '$'");
    }
    return text;
}

std::string directory(const std::string& text, const char* name) {
    const std::string path = field(text, name);
    return path.back() == '/' ? path : path + '/';
}

const std::string& eventId(const std::string& text) {
    constexpr size_t kMinDigits = 5;
    if (text.size() < kMinDigits ||
        text.find_first_not_of("0123456789abcdefABCDEF") != std::string::npos) {
        throw Failure(kUsage, "capture: ID '" + text + "' is not five hexadecimal digits or more");
    }
    return text;
}

std::string information(const Capture& asked) {
    int types = 0;
    for (const std::string& log : asked.logs) types |= kLogTypes.at(log);
    return eventId(asked.id) + ',' + std::to_string(types) + ',' +
           directory(asked.directory, "--dir") + asked.id + "/," +
           directory(asked.archives, "--archive-dir") + ',' + field(asked.name, "--name");
}

// The report's id: the category that the second digit names plus the last three digits, of which an
// event id above 7FFFFFFF has none.
uint32_t reportId(const std::string& eventId) {
    const uint32_t category = eventId[1] == '0' ? 0x10006000 : eventId[1] == '2' ? 0x10032000 : 0;
    const unsigned long long number = strtoull(eventId.c_str(), nullptr, 16);
    return category | (number <= INT32_MAX ? number & 0xFFF : 0);
}

// Whether `asked` may become the report. A report keeps as much of the name as fits.
bool becomes(const Capture& asked, const sim::Report& report) {
    constexpr size_t kMaxNameBytes = 255;
    return report.id == reportId(asked.id) && report.name == asked.name.substr(0, kMaxNameBytes);
}

int sendAndWait(Client& client, const std::string& info, const Capture& asked) {
    const Deadline deadline(asked.timeoutSeconds);
    client.limitCallsTo(asked.timeoutSeconds);
    const std::vector<sim::Report> before = client.phone().reports().after(0);
    ReportWait reports(client.phone(), before.empty() ? 0 : before.back().number);
    send(client, kCaptureLogs, info);
    const auto show = [&](const sim::Report& report) {
        const bool found = becomes(asked, report);
        if (found) puts(report.text().c_str());
        return found;
    };
    if (reports.await(show, deadline)) return kDone;
    client.service();  // throws when it has ended
    throw Failure(kTimeout,
                  "capture: no report came in time; the phone's log may say why: pelto "
                  "logcat -d 'KelvoWexRaiseException:V' '*:S'");
}

int capture(Client& client, const Capture& asked) {
    const std::string info = information(asked);
    if (asked.wait) return sendAndWait(client, info, asked);
    if (!asked.print) return send(client, kCaptureLogs, info);
    puts(info.c_str());
    return kDone;
}

// Refuses a type that the service would cut at a "$" or could not set as a property's value.
int audioDump(Client& client, const std::string& type) {
    if (type.empty() || type.find('$') != std::string::npos ||
        type.size() > sim::Properties::kMaxValueBytes) {
        throw Failure(kUsage, "audio-dump: TYPE must have from 1 to " +
                                  std::to_string(sim::Properties::kMaxValueBytes) +
                                  " bytes and no '$'");
    }
    return send(client, kAudioDumpsys, type);
}

void addCapture(CLI::App& app, Client& client) {
    auto asked = std::make_shared<Capture>();
    CLI::App* verb = app.add_subcommand(
        "capture", "Have an exception report raised; 'reports' shows it, 'pelto-capture' archives");
    verb->add_option(
            "ID", asked->id,
            "Event id: five hexadecimal digits or more, such as A0345; 0 or 2 as the second "
            "is the report's category")
        ->required();
    verb->add_option("--logs", asked->logs,
                     "What to attach, with ',' between; android,kernel when not given")
        ->check(CLI::IsMember(kLogTypes))
        ->delimiter(',')
        ->allow_extra_args(false)
        ->type_name("LOGS");
    verb->add_option("--dir", asked->directory, "Where the logs' directory ID is made")
        ->type_name("PATH")
        ->capture_default_str();
    verb->add_option("--archive-dir", asked->archives, "Where the archive comes to lie")
        ->type_name("PATH")
        ->capture_default_str();
    verb->add_option("--name", asked->name, "What the report and the archive are called")
        ->capture_default_str();
    CLI::Option* wait = verb->add_flag(
        "--wait", asked->wait, "Print the report that it becomes: the next with its id and name");
    addTimeout(verb, asked->timeoutSeconds, "Wait for the report for so many seconds, then exit 5")
        ->needs(wait)
        ->capture_default_str();
    verb->add_flag("--print", asked->print,
                   "Only print the information string, as pelto-capture takes it")
        ->excludes(wait);
    client.onVerb(verb, serviceExits(kNotSent, "with --wait the report did not come in time"),
                  [&client, asked] { return capture(client, *asked); });
}

}  // namespace

void addCaptureVerbs(CLI::App& app, Client& client) {
    addCapture(app, client);

    auto type = std::make_shared<std::string>();
    CLI::App* dump = app.add_subcommand("audio-dump", "Have the audio services dump their state");
    dump->add_option("TYPE", *type, "Type of the dump, handed on as it is")->required();
    client.onVerb(dump, serviceExits(kNotSent),
                  [&client, type] { return audioDump(client, *type); });

    CLI::App* kernelLog = app.add_subcommand(
        "dump-dmesg", "Have the kernel's messages since the last dump written to their file");
    client.onVerb(kernelLog, serviceExits(kNotSent),
                  [&client] { return send(client, kDumpKernelLog, ""); });
}

}  // namespace pelto

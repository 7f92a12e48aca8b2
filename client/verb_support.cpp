#include "client/verb_support.h"

#include <binder/BpBinder.h>
#include <binder/IServiceManager.h>
#include <binder/ProcessState.h>
#include <binder/transport/connection.h>
#include <ipeltoservice/IPeltoService.h>
#include <sim/control/request.h>
#include <sim/default_phone.h>

#include <CLI/CLI.hpp>
#include <map>

#include "client/wait_options.h"
#include "commandline/exit_codes.h"

namespace pelto {
namespace {

Exit exitFor(sim::Reply::Error error) {
    switch (error) {
        case sim::Reply::Error::kUsage:
            return kUsage;
        case sim::Reply::Error::kTimeout:
            return kTimeout;
        default:
            return kFailed;
    }
}

std::string escapeOf(char c) {
    static constexpr char kDigits[] = "0123456789abcdef";
    switch (c) {
        case '\\':
            return "\\\\";
        case '\n':
            return "\\n";
        case '\t':
            return "\\t";
        default:
            return {'\\', 'x', kDigits[(c >> 4) & 15], kDigits[c & 15]};
    }
}

const char* meaningOf(Exit code) {
    switch (code) {
        case kDone:
            return "done";
        case kFailed:
            return "what was asked for failed";
        case kUsage:
            return "wrong usage";
        case kNoPhone:
            return "there is no phone in the folder";
        case kNoService:
            return "no service is published on the phone, or it ended";
        case kTimeout:
            return "the service does not answer";
    }
    return "";
}

}  // namespace

void listExits(CLI::App& app, std::vector<VerbExit> exits) {
    exits.insert(exits.end(), {kDone, kUsage});
    std::map<int, std::string> meanings;
    for (const VerbExit& exit : exits)
        meanings.emplace(exit.code, exit.meaning.empty() ? meaningOf(exit.code) : exit.meaning);
    commandline::listExitCodes(app, meanings);
}

std::vector<VerbExit> phoneExits(const char* failed) {
    return {{kFailed, failed}, kNoPhone};
}

std::vector<VerbExit> serviceExits(const char* failed, const char* late) {
    std::string timeout = meaningOf(kTimeout);
    if (late != nullptr) timeout += std::string(", or ") + late;
    return {{kFailed, failed}, kNoPhone, kNoService, {kTimeout, timeout}};
}

Client::Client(CLI::App& app) : mFolder(sim::defaultFolder()) {
    app.add_option("--phone", mFolder,
                   "Folder of the phone; by default pelto-phone in $XDG_RUNTIME_DIR, else "
                   "/tmp/pelto-phone-UID")
        ->envname("PELTO_PHONE")
        ->type_name("DIR")
        ->take_last()
        ->capture_default_str();
    mCallTimeout = app.add_option("--call-timeout", mCallSeconds,
                                  "Exit code 5 when the service takes so long to answer")
                       ->check(secondsFrom(0.001))
                       ->type_name("S")
                       ->take_last()
                       ->capture_default_str();
}

std::chrono::nanoseconds Client::callLimit() const {
    return std::chrono::duration_cast<std::chrono::nanoseconds>(
        std::chrono::duration<double>(mCallSeconds));
}

void Client::onVerb(CLI::App* verb, const std::vector<VerbExit>& exits, std::function<int()> act) {
    listExits(*verb, exits);
    verb->final_callback([this, act = std::move(act)] { mExitCode = act(); });
}

// Replaces CLI11's require_subcommand(1), which reports a misspelt verb as a missing one.
void Client::needsVerb(CLI::App* app) {
    app->require_subcommand(0, 1);  // a word after the verb is its argument, not a second verb
    app->final_callback([app] {
        if (app->get_subcommands().empty()) {
            const std::string group = app->get_parent() != nullptr ? "pelto " : "";
            throw Failure(kUsage, "a verb is missing; see " + group + app->get_name() + " --help");
        }
    });
}

void Client::limitCallsByDefault(double seconds) {
    if (mCallTimeout->count() == 0) mCallSeconds = seconds;
}

sim::Phone& Client::phone() {
    try {
        return sim::Phone::open(mFolder);
    } catch (const sim::NoPhone& failure) {
        throw Failure(kNoPhone, std::string(failure.what()) + "; make one with: pelto phone start");
    } catch (const std::runtime_error& failure) {
        throw Failure(kNoPhone, failure.what());
    }
}

android::sp<android::IBinder> Client::findService() {
    phone();
    android::ProcessState::self()->setCallTimeout(callLimit().count());
    return android::defaultServiceManager()->checkService(
        android::String16(android::kPeltoServiceName));
}

android::sp<android::IBinder> Client::service() {
    const auto service = findService();
    if (service == nullptr) {
        throw Failure(kNoService, "no service on the phone in " + mFolder +
                                      "; start it with: pelto phone start");
    }
    return service;
}

void Client::call(const std::string& what,
                  const std::function<android::status_t(android::PeltoServiceCalls&)>& operation) {
    const auto published = service();
    android::PeltoServiceCalls calls(published.get());
    check(operation(calls), what, published);
}

std::vector<std::string> Client::ask(const std::vector<std::string>& words) {
    service();
    try {
        sim::Reply reply = sim::controlRequest(phone().folder(), words, callLimit());
        if (reply.ok) return std::move(reply.texts);
        reply.texts.resize(1);
        // Names the command in front, unless the error begins with its name.
        const bool named = reply.texts[0].rfind(words[0] + ": ", 0) == 0;
        throw Failure(exitFor(reply.error),
                      (named ? "" : words[0] + ": ") + escaped(reply.texts[0]));
    } catch (const Failure&) {
        throw;
    } catch (const std::invalid_argument& wrong) {
        throw Failure(kUsage, words[0] + ": " + wrong.what());
    } catch (const std::runtime_error& failure) {
        service();  // throws when it has ended
        throw Failure(kFailed, words[0] + ": " + failure.what());
    }
}

pid_t processOf(const android::sp<android::IBinder>& service) {
    return service->remoteBinder()->connection()->peerPid();
}

void check(android::status_t status, const std::string& what,
           const android::sp<android::IBinder>& service) {
    switch (status) {
        case android::OK:
            return;
        case android::DEAD_OBJECT:
            throw Failure(kNoService,
                          what + ": the service has ended; start it with: pelto phone start");
        case android::WOULD_BLOCK:
            throw Failure(kFailed, what + ": the service takes no more clients; try again later");
        case android::TIMED_OUT:
            throw Failure(kTimeout, what + ": the service, process " +
                                        std::to_string(processOf(service)) + ", does not answer");
        case android::FAILED_TRANSACTION:
            throw Failure(kFailed, what + ": too big for a call, or the service takes none now");
        default:
            throw Failure(kFailed, what + ": refused with status " + std::to_string(status));
    }
}

std::string jsonLine(const nlohmann::ordered_json& object) {
    return object.dump(-1, ' ', false, nlohmann::ordered_json::error_handler_t::replace);
}

std::string escaped(const std::string& text) {
    std::string line;
    for (const char c : text) {
        const auto byte = static_cast<unsigned char>(c);
        if (byte < ' ' || byte == 0x7f || c == '\\') {
            line += escapeOf(c);
        } else {
            line += c;
        }
    }
    return line;
}

}  // namespace pelto

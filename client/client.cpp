#include "client/client.h"

#include <binder/IServiceManager.h>
#include <ipeltoservice/IPeltoService.h>
#include <stdlib.h>
#include <unistd.h>

#include <CLI/CLI.hpp>

namespace pelto {
namespace {

std::string defaultFolder() {
    const char* const runtime = getenv("XDG_RUNTIME_DIR");
    if (runtime != nullptr && *runtime != '\0') return std::string(runtime) + "/pelto-phone";
    return "/tmp/pelto-phone-" + std::to_string(getuid());
}

}  // namespace

Client::Client(CLI::App& app) : mFolder(defaultFolder()) {
    app.add_option("--phone", mFolder, "Folder of the phone")
        ->envname("PELTO_PHONE")
        ->type_name("DIR")
        ->take_last()
        ->capture_default_str();
}

void Client::onVerb(CLI::App* verb, std::function<int()> act) {
    verb->final_callback([this, act = std::move(act)] { mExitCode = act(); });
}

// Not CLI11's own requirement, which hides a misspelt verb behind the missing one.
void Client::needsVerb(CLI::App* app) {
    app->require_subcommand(0, 1);  // what comes behind the verb is never taken for another
    app->final_callback([app] {
        if (app->get_subcommands().empty()) {
            const std::string group = app->get_parent() != nullptr ? "pelto " : "";
            throw Failure(kUsage, "a verb is missing; see " + group + app->get_name() + " --help");
        }
    });
}

sim::Phone& Client::phone() {
    try {
        return sim::Phone::open(mFolder);
    } catch (const std::runtime_error& failure) {
        throw Failure(kNoPhone, std::string(failure.what()) + "; make one with: pelto phone start");
    }
}

android::sp<android::IBinder> Client::findService() {
    phone();
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

void check(android::status_t status, const std::string& what) {
    switch (status) {
        case android::OK:
            return;
        case android::DEAD_OBJECT:
            throw Failure(kNoService,
                          what + ": the service has ended; start it with: pelto phone start");
        case android::FAILED_TRANSACTION:
            throw Failure(kFailed, what + ": too big for a call, or the service takes none now");
        default:
            throw Failure(kFailed, what + ": refused with status " + std::to_string(status));
    }
}

}  // namespace pelto

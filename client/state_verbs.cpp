// What the graphics and window side reports to the service.
#include <ipeltoservice/PeltoServiceCalls.h>

#include <CLI/CLI.hpp>
#include <memory>

#include "client/client.h"
#include "client/verbs.h"

namespace pelto {
namespace {

using android::PeltoServiceCalls;
using android::String8;

struct Stutter {
    std::string detector;
    int frameGap = 0;
};

void addStutter(CLI::App& app, Client& client) {
    auto stutter = std::make_shared<Stutter>();
    CLI::App* verb = app.add_subcommand("stutter", "Report stuttering video");
    verb->add_option("NAME", stutter->detector, "Who saw it, such as HwuiDetect")->required();
    verb->add_option("GAP", stutter->frameGap, "Frame gap")->required();
    client.onVerb(verb, [&client, stutter] {
        const auto service = client.service();
        check(PeltoServiceCalls(service.get())
                  .notifyVideoStutter(String8(stutter->detector), stutter->frameGap),
              "stutter");
        return kDone;
    });
}

void addDisplayState(CLI::App& app, Client& client) {
    auto state = std::make_shared<std::string>();
    CLI::App* verb = app.add_subcommand(
        "sf-state", "Set the display's state; while it is on, HwuiDetect's reports are not sent");
    verb->add_option("on|off", *state, "")->required()->check(CLI::IsMember({"on", "off"}));
    client.onVerb(verb, [&client, state] {
        const auto service = client.service();
        check(PeltoServiceCalls(service.get()).updateSFStateFlag(*state == "on"), "sf-state");
        return kDone;
    });
}

void addTopActivity(CLI::App& app, Client& client) {
    auto interval = std::make_shared<int64_t>(0);
    CLI::App* verb = app.add_subcommand("top-activity", "Report that the top activity may differ");
    verb->add_option("MS", *interval,
                     "Taken only when more milliseconds have passed since the last one taken")
        ->required();
    client.onVerb(verb, [&client, interval] {
        const auto service = client.service();
        check(PeltoServiceCalls(service.get()).updateTopActivity(*interval), "top-activity");
        return kDone;
    });
}

}  // namespace

void addStateVerbs(CLI::App& app, Client& client) {
    addStutter(app, client);
    addDisplayState(app, client);
    addTopActivity(app, client);
}

}  // namespace pelto

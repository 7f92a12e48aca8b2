// The command-line client of a simulated phone and the service published there: one verb per run.
#include <stdio.h>

#include <CLI/CLI.hpp>

#include "client/verbs.h"
#include "commandline/help_verb.h"
#include "commandline/parse.h"
#include "sim/base/text.h"

using namespace pelto;

namespace {

constexpr char kNote[] = "An argument that begins with '-' goes after '--'.\n";

void addVerbs(CLI::App& app, Client& client) {
    addPhoneVerbs(app, client);
    addServiceVerbs(app, client);
    addWatchVerb(app, client);
    addLogcatVerb(app, client);
    addPropertyVerbs(app, client);
    addCaptureVerbs(app, client);
    addReportVerb(app, client);
    addArchiveVerbs(app, client);
    addStateVerbs(app, client);
    addKernelVerbs(app, client);
    addGpuVerbs(app, client);
    addControlVerb(app, client);
    listExits(*commandline::addHelpVerb(app), {{kFailed, kUnwritten}});
}

int run(int argc, char** argv) {
    CLI::App app("Works with a simulated phone and its multimedia diagnostics service.", "pelto");
    app.fallthrough();
    Client client(app);
    Client::needsVerb(&app);
    addVerbs(app, client);
    // Only now: a verb begins with a copy of the footer.
    listExits(app, serviceExits("", "what is waited for does not come"));
    app.footer(app.get_footer() + kNote);
    try {
        const std::optional<int> code = commandline::parse(app, argc, argv);
        return code ? *code : client.exitCode();
    } catch (const Failure& failure) {
        fprintf(stderr, "pelto: %s\n", sim::printable(failure.what()).c_str());
        return failure.code();
    }
}

}  // namespace

int main(int argc, char** argv) {
    commandline::end(run(argc, argv));
}

// The verb that lists the archives of log captures and of the GPU monitor.
#include <errno.h>
#include <sim/base/root.h>
#include <stdio.h>

#include <CLI/CLI.hpp>
#include <memory>

#include "client/archives.h"
#include "client/verbs.h"

namespace pelto {
namespace {

int list(Client& client, const std::string& directory, bool json) {
    const sim::Root& root = client.phone().root();
    struct stat status {};
    if (root.stat((directory + "/").c_str(), &status) != 0) refuseArchive(directory, errno);
    for (const Archive& archive : findArchives(root, directory)) {
        if (json) {
            puts(jsonLine(archive.json()).c_str());
        } else {
            archive.print();
        }
    }
    return kDone;
}

struct ListOptions {
    std::string directory = "/data";
    bool json = false;
};

}  // namespace

void addArchiveVerbs(CLI::App& app, Client& client) {
    CLI::App* archives = app.add_subcommand("archives", "Show archives of captures and GPU faults");
    Client::needsVerb(archives);
    auto options = std::make_shared<ListOptions>();
    CLI::App* verb = archives->add_subcommand(
        "list", "Kind, time, size, name, software version and path of each, a line each");
    verb->add_option("PATH", options->directory, "Where to look, with all below it")
        ->capture_default_str();
    verb->add_flag("--json", options->json,
                   "A JSON object a line: path, kind, name, version, time, bytes");
    client.onVerb(verb, phoneExits("the directory cannot be read"),
                  [&client, options] { return list(client, options->directory, options->json); });
    addArchiveReaders(*archives, client);
}

}  // namespace pelto

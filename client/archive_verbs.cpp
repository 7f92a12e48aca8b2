// Shows the archives that log captures and the GPU monitor have left.
#include <fcntl.h>
#include <sim/root.h>
#include <stdio.h>
#include <string.h>

#include <CLI/CLI.hpp>
#include <memory>

#include "client/archives.h"
#include "client/client.h"
#include "client/tar.h"
#include "client/text.h"
#include "client/verbs.h"

namespace pelto {
namespace {

nlohmann::ordered_json jsonOf(const Archive& archive) {
    return {{"path", archive.path},       {"kind", archive.kind}, {"name", archive.name},
            {"version", archive.version}, {"time", archive.time}, {"bytes", archive.bytes}};
}

void print(const Archive& archive) {
    printf("%-7s  %-19s  %9llu bytes  %s%s%s  %s\n", archive.kind.c_str(), archive.time.c_str(),
           static_cast<unsigned long long>(archive.bytes), printable(archive.name).c_str(),
           archive.version.empty() ? "" : "  version ", printable(archive.version).c_str(),
           printable(archive.path).c_str());
}

[[noreturn]] void refuse(const std::string& path, int error) {
    const char* const why = error == EXDEV   ? "leads out of the phone"
                            : error == ELOOP ? "a link is not followed"
                                             : strerror(error);
    throw Failure(kFailed, "archives: " + printable(path) + ": " + why);
}

int list(Client& client, const std::string& directory, bool json) {
    const sim::Root& root = client.phone().root();
    struct stat status {};
    if (root.stat((directory + "/").c_str(), &status) != 0) refuse(directory, errno);
    for (const Archive& archive : findArchives(root, directory)) {
        if (json) {
            puts(jsonLine(jsonOf(archive)).c_str());
        } else {
            print(archive);
        }
    }
    return kDone;
}

// An archive's path, or the file name of one below /data.
std::string pathOf(const sim::Root& root, const std::string& asked) {
    if (asked.find('/') != std::string::npos) return asked;
    for (const Archive& archive : findArchives(root, "/data")) {
        if (archive.path.substr(archive.path.rfind('/') + 1) == asked) return archive.path;
    }
    throw Failure(kFailed,
                  "archives: there is no '" + printable(asked) + "'; see: pelto archives list");
}

struct Opened {
    Archive archive;
    sim::Fd file;
};

Opened open(Client& client, const std::string& asked) {
    const sim::Root& root = client.phone().root();
    const std::string path = pathOf(root, asked);
    // Not to wait at what is no file.
    sim::Fd file(root.open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK, 0));
    struct stat status {};
    if (!file.valid() || fstat(file.get(), &status) != 0) refuse(path, errno);
    if (!S_ISREG(status.st_mode)) refuse(path, S_ISDIR(status.st_mode) ? EISDIR : EINVAL);
    return {archiveOf(path, static_cast<uint64_t>(status.st_size)), std::move(file)};
}

int show(Client& client, const std::string& asked, bool json) {
    const Opened opened = open(client, asked);
    const std::vector<TarMember> members = listTar(opened.file);
    nlohmann::ordered_json object = jsonOf(opened.archive);
    object["members"] = nlohmann::ordered_json::array();
    if (!json) print(opened.archive);
    for (const TarMember& member : members) {
        object["members"].push_back({{"name", member.name}, {"bytes", member.bytes}});
        if (!json)
            printf("%10llu  %s\n", static_cast<unsigned long long>(member.bytes),
                   member.name.c_str());
    }
    if (json) puts(jsonLine(object).c_str());
    return kDone;
}

// The member of that name, or the one whose name ends so.
std::string memberOf(const sim::Fd& archive, const std::string& asked) {
    std::string found;
    size_t count = 0;
    for (const TarMember& member : listTar(archive)) {
        const size_t size = member.name.size();
        if (member.name == asked) return asked;
        if (size > asked.size() && member.name.substr(size - asked.size()) == asked) {
            found = member.name;
            ++count;
        }
    }
    if (count == 1) return found;
    throw Failure(kFailed, "archives: " + std::to_string(count) + " members end in '" +
                               printable(asked) + "'; see: pelto archives show");
}

struct Asked {
    std::string archive;
    std::string member;
    std::string directory = "/data";
    bool json = false;
};

int cat(Client& client, const Asked& asked) {
    const Opened opened = open(client, asked.archive);
    copyTarMember(opened.file, memberOf(opened.file, asked.member), STDOUT_FILENO);
    return kDone;
}

}  // namespace

void addArchiveVerbs(CLI::App& app, Client& client) {
    constexpr char kWhich[] = "Path on the phone, or its file name when it is below /data";
    auto asked = std::make_shared<Asked>();
    CLI::App* archives = app.add_subcommand("archives", "Show archives of captures and GPU faults");
    Client::needsVerb(archives);

    CLI::App* listVerb = archives->add_subcommand(
        "list", "Kind, time, size, name, software version and path of each, a line each");
    listVerb->add_option("DIR", asked->directory, "Where to look, with all below it")
        ->capture_default_str();
    listVerb->add_flag("--json", asked->json,
                       "A JSON object a line: path, kind, name, version, time, bytes");
    client.onVerb(listVerb,
                  [&client, asked] { return list(client, asked->directory, asked->json); });

    CLI::App* showVerb = archives->add_subcommand("show", "What is in one: size and name a line");
    showVerb->add_option("ARCHIVE", asked->archive, kWhich)->required();
    showVerb->add_flag("--json", asked->json, "A JSON object that has the members too");
    client.onVerb(showVerb, [&client, asked] { return show(client, asked->archive, asked->json); });

    CLI::App* catVerb = archives->add_subcommand("cat", "The content of a file in one");
    catVerb->add_option("ARCHIVE", asked->archive, kWhich)->required();
    catVerb->add_option("MEMBER", asked->member, "Its name or how its name alone ends")->required();
    client.onVerb(catVerb, [&client, asked] { return cat(client, *asked); });
}

}  // namespace pelto

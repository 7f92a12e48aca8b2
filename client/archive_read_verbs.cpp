// Verbs that read the content of archives.
#include <archive.h>
#include <fcntl.h>
#include <sim/base/root.h>
#include <stdio.h>

#include <CLI/CLI.hpp>
#include <memory>

#include "client/archive_reader.h"
#include "client/verb_support.h"

namespace pelto {
namespace {

// `asked` if it is a path, else the path of the archive below /data that has this file name.
std::string pathOf(const sim::Root& root, const std::string& asked) {
    if (asked.find('/') != std::string::npos) return asked;
    for (const Archive& archive : findArchives(root, "/data")) {
        if (archive.path.substr(archive.path.rfind('/') + 1) == asked) return archive.path;
    }
    throw Failure(kFailed,
                  "archives: there is no '" + escaped(asked) + "'; see: pelto archives list");
}

OpenArchive openArchive(Client& client, const std::string& asked) {
    const sim::Root& root = client.phone().root();
    const std::string path = pathOf(root, asked);
    // O_NONBLOCK: opening a FIFO does not wait for its other end.
    sim::Fd file(root.open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK, 0));
    struct stat status {};
    if (!file.valid() || fstat(file.get(), &status) != 0) refuseArchive(path, errno);
    if (!S_ISREG(status.st_mode)) refuseArchive(path, S_ISDIR(status.st_mode) ? EISDIR : EINVAL);
    return {archiveOf(path, static_cast<uint64_t>(status.st_size)), std::move(file)};
}

int show(Client& client, const std::string& asked, bool json) {
    const OpenArchive opened = openArchive(client, asked);
    const std::vector<Member> members = membersOf(opened);
    if (json) {
        nlohmann::ordered_json object = opened.archive.json();
        object["members"] = nlohmann::ordered_json::array();
        for (const Member& member : members)
            object["members"].push_back({{"name", member.name}, {"bytes", member.bytes}});
        puts(jsonLine(object).c_str());
        return kDone;
    }
    opened.archive.print();
    for (const Member& member : members)
        printf("%10llu  %s\n", static_cast<unsigned long long>(member.bytes), member.name.c_str());
    return kDone;
}

// The member named `asked`, else the only one whose name ends in it; files alone count.
std::string fileIn(const OpenArchive& opened, const std::string& asked) {
    std::string found;
    size_t count = 0;
    for (const Member& member : membersOf(opened)) {
        if (!member.isFile) continue;
        if (member.name == asked) return asked;
        const size_t size = member.name.size();
        if (size > asked.size() && member.name.substr(size - asked.size()) == asked) {
            found = member.name;
            ++count;
        }
    }
    if (count == 1) return found;
    throw Failure(kFailed, "archives: " + std::to_string(count) + " members end in '" +
                               escaped(asked) + "'; see: pelto archives show");
}

int cat(Client& client, const std::string& asked, const std::string& member) {
    const OpenArchive opened = openArchive(client, asked);
    const std::string name = fileIn(opened, member);
    visitMembers(opened, [&](const Member& current, archive* reader) {
        if (current.name != name || !current.isFile) return;
        char block[1 << 16];
        la_ssize_t size;
        while ((size = archive_read_data(reader, block, sizeof block)) > 0) {
            if (fwrite(block, 1, static_cast<size_t>(size), stdout) != static_cast<size_t>(size))
                throw Failure(kFailed, "archives: the output could not be written");
        }
        if (size < 0) refuseContent(opened, reader);
    });
    return kDone;
}

struct ReadOptions {
    std::string archive;
    std::string member;
    bool json = false;
};

}  // namespace

void addArchiveReaders(CLI::App& archives, Client& client) {
    constexpr char kWhich[] = "Path on the phone, or its file name when it is below /data";
    auto asked = std::make_shared<ReadOptions>();
    CLI::App* showVerb = archives.add_subcommand("show", "What is in one: size and name a line");
    showVerb->add_option("ARCHIVE", asked->archive, kWhich)->required();
    showVerb->add_flag("--json", asked->json, "A JSON object that has the members too");
    client.onVerb(showVerb, phoneExits("there is no such archive, or it is damaged"),
                  [&client, asked] { return show(client, asked->archive, asked->json); });

    CLI::App* catVerb = archives.add_subcommand("cat", "The content of a file in one");
    catVerb->add_option("ARCHIVE", asked->archive, kWhich)->required();
    catVerb->add_option("MEMBER", asked->member, "Its name or how its name alone ends")->required();
    client.onVerb(catVerb, phoneExits("there is no such file or archive, or it is damaged"),
                  [&client, asked] { return cat(client, asked->archive, asked->member); });
}

}  // namespace pelto

// Verbs that read the content of archives.
#include <archive.h>
#include <archive_entry.h>
#include <fcntl.h>
#include <sim/base/root.h>
#include <stdio.h>
#include <zlib.h>

#include <CLI/CLI.hpp>
#include <memory>

#include "client/archives.h"
#include "client/verb_support.h"

namespace pelto {
namespace {

constexpr size_t kMaxNameBytes = 64 << 20;  // of all names in an archive together

struct OpenArchive {
    Archive archive;
    sim::Fd file;
};

struct Member {
    std::string name;
    uint64_t bytes;
    bool isFile;
};

using Visit = std::function<void(const Member& member, archive* reader)>;

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

// Unpacks a gzip file for libarchive, whose own gzip reader ignores the checksum at the end.
class GzipFile {
  public:
    explicit GzipFile(const sim::Fd& file) {
        lseek(file.get(), 0, SEEK_SET);
        const int copy = fcntl(file.get(), F_DUPFD_CLOEXEC, 0);
        if (copy >= 0) mFile = gzdopen(copy, "r");
    }
    ~GzipFile() {
        if (mFile != nullptr) gzclose(mFile);
    }
    GzipFile(const GzipFile&) = delete;
    GzipFile& operator=(const GzipFile&) = delete;

    bool isGzip() { return mFile != nullptr && gzdirect(mFile) == 0; }

    // libarchive's read callback: the size of the next block, 0 at the end, -1 on an error.
    static la_ssize_t read(archive* reader, void* self, const void** data) {
        auto* const gzip = static_cast<GzipFile*>(self);
        *data = gzip->mBlock;
        const int size = gzread(gzip->mFile, gzip->mBlock, sizeof gzip->mBlock);
        int error = Z_OK;
        gzerror(gzip->mFile, &error);
        if (size > 0 || (size == 0 && error == Z_OK)) return size;
        archive_set_error(reader, EIO, "damaged or cut short");
        return -1;
    }

  private:
    gzFile mFile = nullptr;
    char mBlock[1 << 16];
};

[[noreturn]] void refuseContent(const OpenArchive& opened, archive* reader) {
    const char* const why = archive_error_string(reader);
    refuseArchive(opened.archive.path, why != nullptr ? why : "cannot be read");
}

// Reads the header of the next member; false at the end of the archive.
bool nextMember(const OpenArchive& opened, archive* reader, Member& member) {
    archive_entry* entry = nullptr;
    const int result = archive_read_next_header(reader, &entry);
    if (result == ARCHIVE_EOF) return false;
    // ARCHIVE_WARN: the name is not ASCII; it is used as it is.
    if (result != ARCHIVE_OK && result != ARCHIVE_WARN) refuseContent(opened, reader);
    const char* const name = archive_entry_pathname(entry);
    if (name == nullptr) refuseArchive(opened.archive.path, "a member has no name");
    member = {escaped(name), static_cast<uint64_t>(archive_entry_size(entry)),
              archive_entry_filetype(entry) == AE_IFREG};
    return true;
}

// Calls `visit` for each member; reads to the end, so that a damaged archive is always refused.
// Nothing is unpacked to a file.
void visitMembers(const OpenArchive& opened, const Visit& visit) {
    GzipFile gzip(opened.file);
    if (!gzip.isGzip()) refuseArchive(opened.archive.path, "not packed by gzip");
    const std::unique_ptr<archive, int (*)(archive*)> reader(archive_read_new(), archive_read_free);
    archive_read_support_format_tar(reader.get());
    archive_read_support_format_empty(reader.get());
    if (archive_read_open(reader.get(), &gzip, nullptr, GzipFile::read, nullptr) != ARCHIVE_OK)
        refuseContent(opened, reader.get());
    for (Member member; nextMember(opened, reader.get(), member);) visit(member, reader.get());
    const void* rest = nullptr;
    la_ssize_t size;
    while ((size = GzipFile::read(reader.get(), &gzip, &rest)) > 0) {
    }
    if (size < 0) refuseContent(opened, reader.get());
}

std::vector<Member> membersOf(const OpenArchive& opened) {
    std::vector<Member> members;
    size_t bytes = 0;
    visitMembers(opened, [&](const Member& member, archive*) {
        bytes += member.name.size() + sizeof(Member);
        if (bytes > kMaxNameBytes) refuseArchive(opened.archive.path, "too many names");
        members.push_back(member);
    });
    return members;
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
    client.onVerb(showVerb, [&client, asked] { return show(client, asked->archive, asked->json); });

    CLI::App* catVerb = archives.add_subcommand("cat", "The content of a file in one");
    catVerb->add_option("ARCHIVE", asked->archive, kWhich)->required();
    catVerb->add_option("MEMBER", asked->member, "Its name or how its name alone ends")->required();
    client.onVerb(catVerb, [&client, asked] { return cat(client, asked->archive, asked->member); });
}

}  // namespace pelto

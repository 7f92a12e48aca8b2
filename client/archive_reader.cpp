#include "client/archive_reader.h"

#include <archive.h>
#include <archive_entry.h>
#include <fcntl.h>
#include <zlib.h>

#include <memory>

#include "client/verb_support.h"

namespace pelto {
namespace {

constexpr size_t kMaxNameBytes = 64 << 20;  // of all names in an archive together

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

}  // namespace

void refuseContent(const OpenArchive& opened, archive* reader) {
    const char* const why = archive_error_string(reader);
    refuseArchive(opened.archive.path, why != nullptr ? why : "cannot be read");
}

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

}  // namespace pelto

// Takes names of archives apart, and lists what is in archives. The first byte of an input says
// what the rest is: 'n' a name, which its parts make up again, 't' a tar file, whose archive is
// refused once it is damaged, else an archive.
#include <archive.h>
#include <sys/mman.h>
#include <unistd.h>
#include <zlib.h>

#include "client/archive_reader.h"
#include "client/verb_support.h"
#include "fuzz/fuzz_input.h"
#include "fuzz/fuzz_phone.h"

namespace {

constexpr size_t kMaxName = 255;

// Whether it is a time as in archives' names.
bool isTime(const std::string& text) {
    const std::string form = "0000-00-00_00-00-00";
    if (text.size() != form.size()) return false;
    for (size_t i = 0; i < form.size(); ++i) {
        const bool digit = text[i] >= '0' && text[i] <= '9';
        if (form[i] == '0' ? !digit : text[i] != form[i]) return false;
    }
    return true;
}

bool endsIn(const std::string& text, const std::string& end) {
    return text.size() >= end.size() && text.compare(text.size() - end.size(), end.npos, end) == 0;
}

void checkName(std::string name) {
    name = name.substr(0, name.find('\0')).substr(0, kMaxName);
    name = name.substr(0, name.find('/'));
    const pelto::Archive archive = pelto::archiveOf("/data/" + name, 7);
    require(archive.path == "/data/" + name && archive.bytes == 7, "path and size are kept");
    const std::string ending = ".tar.gz";
    if (endsIn(name, ending)) name.erase(name.size() - ending.size());
    const std::string head = archive.name + "@";
    if (archive.kind == "other") {
        const std::string last = name.substr(name.rfind('@') + 1);
        require(archive.name == name && archive.time.empty() && !isTime(last), "it has no time");
        return;
    }
    require(isTime(archive.time), "its time is one");
    if (archive.kind == "capture") {
        require(name == archive.time || name == head + archive.time, "name and time make it up");
        require(archive.version.empty(), "a capture has no version");
    } else {
        const std::string tail = archive.version + "@_" + archive.time;
        require(archive.kind == "gpu" && archive.version.find('@') == name.npos, "it is a fault's");
        require(name == "gpudump@" + tail || name == "gpudump@" + head + tail, "its parts");
    }
}

void append(std::string& bytes, size_t number, int size) {
    for (int i = 0; i < size; ++i) bytes += static_cast<char>(number >> (8 * i));
}

// A gzip file that stores the bytes, at most 65535, as they are.
std::string storedIn(std::string_view tar) {
    std::string gzip("\x1f\x8b\x08\0\0\0\0\0\0\xff\x01", 11);
    append(gzip, tar.size(), 2);
    append(gzip, ~tar.size(), 2);
    gzip += tar;
    const auto* bytes = reinterpret_cast<const unsigned char*>(tar.data());
    append(gzip, crc32(0, bytes, static_cast<unsigned>(tar.size())), 4);
    append(gzip, tar.size(), 4);
    return gzip;
}

// Whether the archive is listed, and each content read, without a failure.
bool isRead(const std::string& bytes) {
    static sim::Fd& file = *new sim::Fd(memfd_create("archive", MFD_CLOEXEC));
    require(ftruncate(file.get(), 0) == 0 && lseek(file.get(), 0, SEEK_SET) == 0 &&
                sim::writeAll(file.get(), bytes.data(), bytes.size()),
            "the archive is written");
    const pelto::OpenArchive opened{pelto::archiveOf("/data/a.tar.gz", bytes.size()),
                                    sim::Fd(dup(file.get()))};
    try {
        const auto members = pelto::membersOf(opened);
        size_t next = 0;
        pelto::visitMembers(opened, [&](const pelto::Member& member, archive* reader) {
            require(next < members.size() && members[next++].name == member.name, "the same again");
            for (const char c : member.name)
                require(static_cast<unsigned char>(c) >= ' ' && c != 0x7f, "its name is one line");
            char block[4096];
            for (int i = 0; i < 16 && archive_read_data(reader, block, sizeof(block)) > 0; ++i) {
            }
        });
        return true;
    } catch (const pelto::Failure& failure) {
        require(failure.code() == pelto::kFailed && failure.what()[0] != '\0', "it says why");
        return false;
    }
}

void checkTar(std::string_view tar) {
    const std::string whole = storedIn(tar);
    if (!isRead(whole)) return;
    // The last eight bytes of a gzip file are its checksum and its size.
    std::string damaged = whole;
    damaged[whole.size() - 8] ^= 1;
    require(!isRead(damaged), "another checksum is refused");
    require(!isRead(whole.substr(0, whole.size() - 1)), "one that is cut short is refused");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    FuzzInput input(data, size);
    const uint8_t kind = input.byte();
    const std::string_view rest = input.rest();
    if (kind == 'n') {
        checkName(std::string(rest));
    } else if (kind == 't') {
        checkTar(rest.substr(0, 65535));
    } else {
        isRead(std::string(rest));
    }
    return 0;
}

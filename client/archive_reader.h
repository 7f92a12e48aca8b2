#pragma once

#include <sim/base/fd.h>
#include <stdint.h>

#include <functional>
#include <string>
#include <vector>

#include "client/archives.h"

struct archive;

namespace pelto {

// An archive that is read from its start by each call below.
struct OpenArchive {
    Archive archive;
    sim::Fd file;
};

struct Member {
    std::string name;  // on one line: see escaped()
    uint64_t bytes;
    bool isFile;
};

// Called with libarchive's reader, which gives the member's content.
using Visit = std::function<void(const Member& member, archive* reader)>;

// Calls `visit` for each member; reads to the end, so that a damaged archive is always refused.
// Nothing is unpacked to a file. Throws Failure.
void visitMembers(const OpenArchive& opened, const Visit& visit);

// Throws what visitMembers() throws, and Failure for more than 64 MiB of names.
std::vector<Member> membersOf(const OpenArchive& opened);

// Throws Failure with the reader's error.
[[noreturn]] void refuseContent(const OpenArchive& opened, archive* reader);

}  // namespace pelto

#pragma once

#include <sim/fd.h>
#include <stdint.h>

#include <string>
#include <vector>

namespace pelto {

struct TarMember {
    std::string name;  // as tar shows it, control characters as \n, \t or \NNN
    uint64_t bytes = 0;
};

// Read a gzip-packed archive, from its start, by the workstation's tar; nothing is unpacked to a
// file. Throws Failure with what tar says is wrong.
std::vector<TarMember> listTar(const sim::Fd& archive);
void copyTarMember(const sim::Fd& archive, const std::string& name, int outputFd);

}  // namespace pelto

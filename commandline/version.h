#pragma once

#include <string>

namespace commandline {

// The program, its version and the commit that it was built from, as "pelto 1.0.0 (git
// 1a2b3c4d5e6f-dirty)". Without "-dirty" when the tree had no changes, without the parentheses when
// it was no git checkout.
std::string versionLine(const std::string& program);

// The version alone.
extern const char kVersion[];

// The commit's abbreviated hash, with "-dirty"; empty when there is none. Each build writes the
// file that defines it (cmake/write_revision.cmake).
extern const char kRevision[];

}  // namespace commandline

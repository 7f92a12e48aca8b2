#include "commandline/version.h"

namespace commandline {

const char kVersion[] = PELTO_VERSION;

std::string versionLine(const std::string& program) {
    const std::string revision = kRevision;
    return program + " " + kVersion + (revision.empty() ? "" : " (git " + revision + ")");
}

}  // namespace commandline

#pragma once

#include "sim/base/fd.h"

namespace sim {

// Tells whoever started this process and waits at the descriptor's other end that what it asked for
// has begun, and closes it; -1 is nobody.
inline void tellReady(int fd) {
    const Fd owned(fd);
    if (owned.valid()) writeAll(owned.get(), "ready\n", 6);
}

}  // namespace sim

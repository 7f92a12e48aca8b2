#pragma once

#include <cstdint>

// Counts every use of operator new. To be linked into the program itself, whose operators it
// replaces.
namespace bench {

uint64_t allocationsOfProcess();
uint64_t allocationsOfThread();  // the calling one

}  // namespace bench

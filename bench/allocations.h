#pragma once

#include <malloc.h>

#include <cstddef>
#include <cstdint>

// Counts every use of operator new. To be linked into the program itself, whose operators it
// replaces.
namespace bench {

uint64_t allocationsOfProcess();
uint64_t allocationsOfThread();  // the calling one

// The bytes of the C library's heap that are in use; under a sanitizer it means nothing. For this
// alone, nothing needs to be linked.
inline size_t heapInUse() {
    const struct mallinfo2 heap = mallinfo2();
    return heap.uordblks + heap.hblkhd;
}

}  // namespace bench

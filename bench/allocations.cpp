#include "bench/allocations.h"

#include <atomic>
#include <cstdlib>
#include <new>

namespace {

std::atomic<uint64_t> gOfProcess{0};
thread_local uint64_t tOfThread = 0;

}  // namespace

uint64_t bench::allocationsOfProcess() {
    return gOfProcess.load(std::memory_order_relaxed);
}
uint64_t bench::allocationsOfThread() {
    return tOfThread;
}

void* operator new(size_t size) {
    gOfProcess.fetch_add(1, std::memory_order_relaxed);
    ++tOfThread;
    if (void* const memory = malloc(size)) return memory;
    throw std::bad_alloc();
}
void operator delete(void* memory) noexcept {
    free(memory);
}
void operator delete(void* memory, size_t /*size*/) noexcept {
    free(memory);
}

#include <gmock/gmock.h>
#include <stdio.h>
#include <unistd.h>

// Null unless the address sanitizer is linked in.
extern "C" __attribute__((weak)) int __lsan_do_recoverable_leak_check();

// Runs the tests. Ends by _exit(): threads that still run use the process-wide objects.
int main(int argc, char** argv) {
    testing::InitGoogleMock(&argc, argv);
    int result = RUN_ALL_TESTS();
    if (__lsan_do_recoverable_leak_check != nullptr && __lsan_do_recoverable_leak_check() != 0)
        result = 1;
    fflush(nullptr);
    _exit(result);
}

#include <gmock/gmock.h>
#include <stdio.h>
#include <unistd.h>

// There when the address sanitizer is linked in.
extern "C" __attribute__((weak)) int __lsan_do_recoverable_leak_check();

// Ends without destroying process-wide objects under the feet of threads that still run.
int main(int argc, char** argv) {
    testing::InitGoogleMock(&argc, argv);
    int result = RUN_ALL_TESTS();
    if (__lsan_do_recoverable_leak_check != nullptr && __lsan_do_recoverable_leak_check() != 0)
        result = 1;
    fflush(nullptr);
    _exit(result);
}

#include <binder/transport/process.h>

namespace android::transport {

Process& Process::get() {
    static Process& process = *new Process();
    return process;
}

}  // namespace android::transport

#include "gpu/KelvoGpuMinidumpFactory.h"

#include "gpu/KelvoGpuMinidump.h"

namespace android {

std::shared_ptr<KelvoGpuMinidump> KelvoGpuMinidumpFactory::create() {
    return std::make_shared<KelvoGpuMinidump>();
}

}  // namespace android

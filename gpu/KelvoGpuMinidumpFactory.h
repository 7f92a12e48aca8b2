#pragma once

#include <memory>

namespace android {

class KelvoGpuMinidump;

class KelvoGpuMinidumpFactory {
  public:
    static std::shared_ptr<KelvoGpuMinidump> create();
};

}  // namespace android

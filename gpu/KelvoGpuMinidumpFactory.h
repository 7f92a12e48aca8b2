#pragma once

#include <memory>

namespace android {

class KelvoGpuMinidump;

// Makes the GPU fault monitor. Callers accept null, for a phone without one.
class KelvoGpuMinidumpFactory {
  public:
    static std::shared_ptr<KelvoGpuMinidump> create();
};

}  // namespace android

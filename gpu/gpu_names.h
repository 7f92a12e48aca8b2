#pragma once

#include <cstddef>

namespace android {

constexpr char kGpuTag[] = "KelvoGpuMinidump";
constexpr char kGpuDump[] = "/sys/class/kgsl/kgsl-3d0/snapshot/dump";
constexpr char kOtaVersion[] = "ro.build.version.ota";
constexpr size_t kPropertyBytes = 92;  // the most a property's value has, its terminator included
constexpr char kGpuDirectory[] = "/data/kelvo/mmdump/gpu/";

}  // namespace android

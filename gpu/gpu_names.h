#pragma once

namespace android {

constexpr char kGpuTag[] = "KelvoGpuMinidump";
constexpr char kGpuDump[] = "/sys/class/kgsl/kgsl-3d0/snapshot/dump";
constexpr char kOtaVersion[] = "ro.build.version.ota";
constexpr char kGpuDirectory[] = "/data/kelvo/mmdump/gpu/";

}  // namespace android

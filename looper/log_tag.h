#pragma once

namespace android {

constexpr char kLooperTag[] = "KELVO_Looper";

}  // namespace android

#pragma once

namespace android {

constexpr char kServiceTag[] = "PeltoService";

}  // namespace android

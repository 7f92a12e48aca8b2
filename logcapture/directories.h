#pragma once

#include <utils/String8.h>

#include <cstddef>

namespace android {

// The most bytes of a path with its terminator; longer paths are cut.
constexpr size_t kMaxPathBytes = 256;

enum class PathStep { kExists, kPrefixExists, kPrefixMissing, kPrefixMade };
using PathListener = void (*)(PathStep step, const char* path);

// Makes a directory unless the whole path exists: each missing prefix that ends in "/" is made with
// mode 0700 and then opened to everybody. The last component is not made without a "/" at its end.
//
// `listener`, if given, is called for every step. Returns false with an error line under `tag` when
// a directory cannot be made; a failed chmod is only a debug line.
bool makeDirectories(const char* tag, const String8& path, PathListener listener = nullptr);

}  // namespace android

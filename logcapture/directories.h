#pragma once

#include <utils/String8.h>

#include <cstddef>

namespace android {

// Of a path with its terminator; what is longer is cut.
constexpr size_t kPathBytes = 256;

enum class PathStep { kExists, kPrefixExists, kPrefixMissing, kPrefixMade };
using PathListener = void (*)(PathStep step, const char* path);

// Makes sure a directory exists: each missing part of the path that ends in "/" is made with mode
// 0700 and then opened to everybody, so a path without a "/" at its end leaves its last component
// unmade. The first path examined is the whole one: if it exists, nothing else is looked at.
//
// A caller that wants to hear of every step passes `listener`. Returns false and an error line
// under `tag` when a directory cannot be made; a chmod that fails is only a debug line.
bool makeDirectories(const char* tag, const String8& path, PathListener listener = nullptr);

}  // namespace android

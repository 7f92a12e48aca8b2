#include <android/log.h>
#include <utils/Vector.h>

namespace android {

void fatalIndexOutOfRange(const char* where, size_t index, size_t size) {
    __android_log_assert(nullptr, "Vector", "%s: index=%u out of range (%u)", where,
                         static_cast<unsigned>(index), static_cast<unsigned>(size));
}

}  // namespace android

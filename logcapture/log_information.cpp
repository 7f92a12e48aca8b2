#include "logcapture/log_information.h"

#include <cstring>
#include <string>

namespace android {

bool splitLogInformation(const String8& text, LogInformation& fields) {
    std::string copy = text.c_str();
    LogInformation found;
    size_t count = 0;
    char* rest = nullptr;
    for (char* field = strtok_r(copy.data(), ",", &rest); field != nullptr && count < kLogFields;
         field = strtok_r(nullptr, ",", &rest)) {
        found[count++] = String8(field);
    }
    if (count < kLogFields) return false;
    fields = found;
    return true;
}

}  // namespace android

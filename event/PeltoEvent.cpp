#include "event/PeltoEvent.h"

#include <android/log.h>

#include <cstring>
#include <vector>

#include "event/phone_integer.h"

namespace android {

namespace {

constexpr char kTag[] = "PeltoEvent";

// The non-empty pieces of `text` between separators; a NUL replaces the separator that ends each.
std::vector<char*> piecesOf(std::string& text, const char* separator) {
    std::vector<char*> pieces;
    char* rest = nullptr;
    for (char* piece = strtok_r(text.data(), separator, &rest); piece != nullptr;
         piece = strtok_r(nullptr, separator, &rest)) {
        pieces.push_back(piece);
    }
    return pieces;
}

}  // namespace

PeltoEvent::PeltoEvent(std::string event) {
    char* rest = nullptr;
    const char* const type = strtok_r(event.data(), "$", &rest);
    if (type == nullptr) return;
    mEventType = type;
    const char* const info = strtok_r(nullptr, "$", &rest);
    if (info == nullptr) return;
    mEventInfo = info;
    parseExtras();
}

void PeltoEvent::parseExtras() {
    std::string text = mEventInfo;
    const std::vector<char*> subInfos = piecesOf(text, ",");
    if (subInfos.empty()) {
        __android_log_print(ANDROID_LOG_WARN, kTag, "subInfos is empty!");
        return;
    }
    for (char* subInfo : subInfos) {
        if (*subInfo == '\0') {
            __android_log_print(ANDROID_LOG_WARN, kTag, "subInfo is empty!");
            continue;
        }
        char* rest = nullptr;
        const char* const key = strtok_r(subInfo, ":", &rest);
        const char* const value = strtok_r(nullptr, ":", &rest);
        if (key == nullptr || value == nullptr) continue;
        mExtras[key] = value;
    }
}

int PeltoEvent::getIntFromStringExtra(std::string key, int defaultValue) {
    if (key.empty()) return defaultValue;
    const auto extra = mExtras.find(key);
    return extra == mExtras.end() ? defaultValue : phoneAtoi(extra->second.c_str());
}

std::string PeltoEvent::getStringExtra(std::string key) {
    if (key.empty()) return {};
    const auto extra = mExtras.find(key);
    return extra == mExtras.end() ? std::string() : extra->second;
}

}  // namespace android

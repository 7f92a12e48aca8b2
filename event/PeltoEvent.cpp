#include "event/PeltoEvent.h"

#include <android/log.h>

#include <algorithm>
#include <string_view>
#include <utility>

#include "event/phone_integer.h"

namespace android {

namespace {

constexpr char kTag[] = "PeltoEvent";

// Cuts the next piece off `rest`: runs of the separator count as one. False when there is none.
bool cutPiece(std::string_view& rest, char separator, std::string_view& piece) {
    rest.remove_prefix(std::min(rest.find_first_not_of(separator), rest.size()));
    piece = rest.substr(0, rest.find(separator));
    rest.remove_prefix(piece.size());
    return !piece.empty();
}

}  // namespace

PeltoEvent::PeltoEvent(std::string event) {
    std::string_view rest = event.c_str(), piece;  // up to the first NUL
    if (!cutPiece(rest, '$', piece)) return;
    mEventType = piece;
    if (!cutPiece(rest, '$', piece)) return;
    // The information takes over the memory of the text.
    event.resize(static_cast<size_t>(piece.data() + piece.size() - event.data()));
    event.erase(0, event.size() - piece.size());
    mEventInfo = std::move(event);
    parseExtras();
}

void PeltoEvent::parseExtras() {
    std::string_view rest = mEventInfo, subInfo, key, value;
    if (!cutPiece(rest, ',', subInfo)) {
        __android_log_print(ANDROID_LOG_WARN, kTag, "subInfos is empty!");
        return;
    }
    do {
        // Kept as a guard, though no piece is empty.
        if (subInfo.empty()) {
            __android_log_print(ANDROID_LOG_WARN, kTag, "subInfo is empty!");
            continue;
        }
        if (cutPiece(subInfo, ':', key) && cutPiece(subInfo, ':', value))
            mExtras.insert_or_assign(std::string(key), value);
    } while (cutPiece(rest, ',', subInfo));
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

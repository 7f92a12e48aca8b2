#pragma once

#include <binder/Binder.h>
#include <binder/Parcel.h>
#include <string.h>

#include <string_view>
#include <utility>
#include <vector>

// Makes a parcel as a process receives it: these bytes, with `object` at every mark of one.
inline android::Parcel receivedParcel(std::string_view data,
                                      const android::sp<android::IBinder>& object) {
    using android::Parcel;
    std::vector<uint8_t> bytes(data.begin(), data.end());
    std::vector<Parcel::Object> objects;
    size_t next = 0;
    for (size_t at = 0; at + Parcel::kObjectMarkSize <= bytes.size(); at += 4) {
        if (at < next || !Parcel::isObjectMark(bytes.data() + at)) continue;
        objects.push_back({static_cast<uint32_t>(at), object});
        next = at + Parcel::kObjectMarkSize;
    }
    Parcel parcel;
    parcel.adopt(std::move(bytes), std::move(objects));
    return parcel;
}

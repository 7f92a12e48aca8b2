#include <binder/Parcel.h>
#include <binder/transport/frame.h>

#include <cstring>

namespace android::transport {

namespace {

const char* callFault(const FrameHeader& header) {
    const bool oneWay = header.flags == IBinder::FLAG_ONEWAY;
    if (header.flags != 0 && !oneWay) return "unknown flags";
    return oneWay == (header.callId == 0) ? nullptr : "a call id that does not fit its flags";
}

const char* kindFault(const FrameHeader& header) {
    switch (header.kind) {
        case CALL:
            return callFault(header);
        case REPLY:
            return header.flags == 0 ? nullptr : "unknown flags";
        case HELLO:
        case RELEASE:
            return header.size == 0 ? nullptr : "data where none belong";
        default:
            return "unknown kind of frame";
    }
}

const char* objectFault(const Frame& frame, const ObjectEntry& entry, uint32_t least) {
    if (entry.offset % 4 != 0 || entry.offset < least || entry.offset > frame.dataSize ||
        frame.dataSize - entry.offset < Parcel::kObjectMarkSize) {
        return "an object outside the data";
    }
    if (!Parcel::isObjectMark(frame.data + entry.offset)) return "an object where none was written";
    return entry.owner <= RECEIVER ? nullptr : "an object of nobody's";
}

}  // namespace

const char* headerFault(const FrameHeader& header) {
    if (header.magic != kMagic) return "bad magic";
    if (header.objectCount > kMaxObjects) return "too many objects";
    const size_t table = header.objectCount * sizeof(ObjectEntry);
    if (header.size < table || header.size - table > kMaxPayload || header.size % 4 != 0) {
        return "bad size";
    }
    return kindFault(header);
}

const char* parseFrame(const FrameHeader& header, const uint8_t* payload, Frame* frame) {
    const size_t table = header.objectCount * sizeof(ObjectEntry);
    frame->header = header;
    frame->data = payload + table;
    frame->dataSize = header.size - table;
    frame->objects.resize(header.objectCount);
    if (table > 0) memcpy(frame->objects.data(), payload, table);
    uint32_t least = 0;
    for (const ObjectEntry& entry : frame->objects) {
        if (const char* fault = objectFault(*frame, entry, least)) return fault;
        least = entry.offset + Parcel::kObjectMarkSize;
    }
    return nullptr;
}

}  // namespace android::transport

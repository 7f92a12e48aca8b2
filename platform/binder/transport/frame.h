// The wire format between two processes, the same for 32-bit and 64-bit builds.
//
// A frame is a header, a table of the objects in the data, and the data (a parcel's bytes). Each
// side opens with a HELLO. An object is named by a handle of the side that owns it: 0 is the
// published one, further ones are assigned as objects are sent. The receiver counts how often it
// got an object; when the proxy goes, RELEASE returns that count, so that a release and a new
// sending of the object may cross on the way.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

namespace android::transport {

enum FrameKind : uint32_t { HELLO = 1, CALL = 2, REPLY = 3, RELEASE = 4 };

struct FrameHeader {
    uint32_t magic;
    uint32_t size;  // bytes after the header: object table and data
    uint32_t kind;
    uint32_t flags;        // CALL: 1 when one-way
    uint64_t callId;       // CALL, REPLY: the same in both; 0 when one-way
    uint32_t handle;       // CALL, RELEASE: an object of the receiver
    uint32_t code;         // CALL: the operation; RELEASE: the count; HELLO: the version
    int32_t status;        // REPLY: the result; HELLO: OK, or WOULD_BLOCK to refuse a client
    uint32_t objectCount;  // CALL, REPLY: entries of the table
};

enum ObjectOwner : uint32_t { SENDER = 0, RECEIVER = 1 };

struct ObjectEntry {
    uint32_t offset;  // of the mark in the data; offsets ascend
    uint32_t owner;
    uint32_t handle;  // the owner's name for the object
};

static_assert(sizeof(FrameHeader) == 40, "frames are the same on every build");
static_assert(offsetof(FrameHeader, size) == 4 && offsetof(FrameHeader, kind) == 8 &&
                  offsetof(FrameHeader, flags) == 12 && offsetof(FrameHeader, callId) == 16 &&
                  offsetof(FrameHeader, handle) == 24 && offsetof(FrameHeader, code) == 28 &&
                  offsetof(FrameHeader, status) == 32 && offsetof(FrameHeader, objectCount) == 36,
              "frames are the same on every build");
static_assert(sizeof(ObjectEntry) == 12 && offsetof(ObjectEntry, handle) == 8,
              "frames are the same on every build");

constexpr uint32_t kMagic = 0x31444e42;  // "BND1"
constexpr uint32_t kVersion = 1;

// A transaction may hold kMaxPayload bytes and kMaxObjects objects; anything bigger fails at the
// sender with FAILED_TRANSACTION.
constexpr size_t kMaxPayload = (1u << 20) - (8u << 10);
constexpr size_t kMaxObjects = 1024;
constexpr size_t kMaxFrame = sizeof(FrameHeader) + kMaxObjects * sizeof(ObjectEntry) + kMaxPayload;

// A received frame; `data` points into the connection's buffer.
struct Frame {
    FrameHeader header;
    std::vector<ObjectEntry> objects;
    const uint8_t* data;
    size_t dataSize;
};

// Says what is wrong with a header, or null; called before its frame is allocated.
const char* headerFault(const FrameHeader& header);
// Splits a frame whose header is right; says what is wrong with its objects, or null.
const char* parseFrame(const FrameHeader& header, const uint8_t* payload, Frame* frame);

}  // namespace android::transport

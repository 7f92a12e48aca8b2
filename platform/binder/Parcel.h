#pragma once

#include <binder/IBinder.h>
#include <utils/String16.h>
#include <utils/String8.h>

#include <cstddef>
#include <cstdint>
#include <memory>
#include <vector>

namespace android {

// The arguments or the results of one call, written and read in the same order.
//
// Layout: every item starts on a multiple of 4 bytes. A String8 or String16 is its length, its text
//   and a NUL; a C string only text and NUL. An object is a mark in the bytes plus an entry in a
//   table beside them; a mark without an entry is no object.
// Threads: not synchronised. Reading moves a position, also of a const parcel.
// Errors: a failed read leaves the position where it was and gives NOT_ENOUGH_DATA (the parcel ends
//   before the item) or BAD_VALUE (the item is malformed); the forms that return a value give 0, an
//   empty text or null. After a failed write all later ones fail with its error: errorCheck().
class Parcel {
  public:
    // The limit of a parcel's growth; a transaction takes less (transport/frame.h).
    static constexpr size_t kMaxSize = 4u << 20;

    struct Object {
        uint32_t offset;
        sp<IBinder> binder;
    };

    Parcel() = default;
    Parcel(Parcel&&) = default;
    Parcel& operator=(Parcel&&) = default;
    Parcel(const Parcel&) = delete;
    Parcel& operator=(const Parcel&) = delete;

    const uint8_t* data() const { return mData.data(); }
    size_t dataSize() const { return mData.size(); }
    size_t dataAvail() const { return mPos < mData.size() ? mData.size() - mPos : 0; }
    size_t dataPosition() const { return mPos; }
    void setDataPosition(size_t position) const { mPos = position; }
    // Replaces the content by a copy of these bytes, without objects.
    status_t setData(const uint8_t* bytes, size_t size);

    // OK, or the error of the first failed write: transact() refuses such a parcel.
    status_t errorCheck() const { return mError; }

    status_t write(const void* bytes, size_t size);
    // Room for `size` bytes at the position, valid until the next write; null when refused.
    void* writeInplace(size_t size);
    status_t writeInt32(int32_t value);
    status_t writeInt64(int64_t value);
    status_t writeBool(bool value);
    status_t writeCString(const char* text);
    status_t writeString8(const String8& text);
    status_t writeString16(const String16& text);
    status_t writeStrongBinder(const sp<IBinder>& object);
    status_t writeInterfaceToken(const String16& interface);

    int32_t readInt32() const;
    status_t readInt32(int32_t* value) const;
    status_t readInt64(int64_t* value) const;
    bool readBool() const;
    status_t readBool(bool* value) const;
    // Null when no terminator is left in the parcel.
    const char* readCString() const;
    String8 readString8() const;
    status_t readString8(String8* text) const;
    status_t readString16(String16* text) const;
    // UNEXPECTED_NULL when null was written, BAD_TYPE when no object was.
    sp<IBinder> readStrongBinder() const;
    status_t readStrongBinder(sp<IBinder>* object) const;
    status_t readNullableStrongBinder(sp<IBinder>* object) const;

    // Reads that interface's token; false, the position unchanged, when something else comes next.
    bool enforceInterface(const String16& interface) const;
    bool checkInterface(const IBinder* object) const;

    // For the transport: reads the object table, and sets the content as it was received, each
    // object at the offset of a mark (isObjectMark()), in ascending order.
    const std::vector<Object>& objects() const { return mObjects; }
    void adopt(std::vector<uint8_t> bytes, std::vector<Object> objects);
    static bool isObjectMark(const uint8_t* bytes);
    static constexpr size_t kObjectMarkSize = 8;

  private:
    const void* readInplace(size_t size) const;
    status_t read(void* bytes, size_t size) const;
    status_t readLength(size_t* length) const;
    status_t fail(status_t error);
    void forgetObjects(size_t begin, size_t end);

    std::vector<uint8_t> mData;
    std::vector<Object> mObjects;  // ascending offsets
    mutable size_t mPos = 0;
    status_t mError = OK;
};

}  // namespace android

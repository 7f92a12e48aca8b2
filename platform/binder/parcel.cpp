#include <binder/Parcel.h>

#include <algorithm>
#include <cstring>

namespace android {

namespace {

constexpr uint32_t kObjectMark = 0x2a626f2a;  // "*ob*"
constexpr uint32_t kNullMark = 0x2a6e6f2a;    // "*on*"
constexpr int32_t kTokenMark = 0x50545359;    // precedes an interface token

constexpr size_t padded(size_t size) {
    return (size + 3) & ~size_t{3};
}

}  // namespace

status_t Parcel::fail(status_t error) {
    if (mError == OK) mError = error;
    return error;
}

status_t Parcel::setData(const uint8_t* bytes, size_t size) {
    if (size > kMaxSize) return fail(NO_MEMORY);
    adopt(std::vector<uint8_t>(bytes, bytes + size), {});
    return OK;
}

void Parcel::adopt(std::vector<uint8_t> bytes, std::vector<Object> objects) {
    mData = std::move(bytes);
    mObjects = std::move(objects);
    mPos = 0;
    mError = OK;
}

bool Parcel::isObjectMark(const uint8_t* bytes) {
    uint32_t mark;
    memcpy(&mark, bytes, sizeof(mark));
    return mark == kObjectMark;
}

// Drops the objects whose mark overlaps the bytes from `begin` to `end`.
void Parcel::forgetObjects(size_t begin, size_t end) {
    if (mObjects.empty()) return;
    const auto overwritten = [&](const Object& object) {
        return object.offset < end && object.offset + kObjectMarkSize > begin;
    };
    mObjects.erase(std::remove_if(mObjects.begin(), mObjects.end(), overwritten), mObjects.end());
}

void* Parcel::writeInplace(size_t size) {
    if (mError != OK) return nullptr;
    if (size > kMaxSize || mPos > kMaxSize || mPos + padded(size) > kMaxSize) {
        fail(NO_MEMORY);
        return nullptr;
    }
    const size_t begin = mPos;
    const size_t end = begin + padded(size);
    if (end > mData.size()) mData.resize(end);
    forgetObjects(begin, end);
    std::fill(mData.begin() + static_cast<ptrdiff_t>(begin + size),
              mData.begin() + static_cast<ptrdiff_t>(end), uint8_t{0});
    mPos = end;
    return mData.data() + begin;
}

status_t Parcel::write(const void* bytes, size_t size) {
    void* const place = writeInplace(size);
    if (place == nullptr) return mError;
    if (size > 0) memcpy(place, bytes, size);
    return OK;
}

status_t Parcel::writeInt32(int32_t value) {
    return write(&value, sizeof(value));
}
status_t Parcel::writeInt64(int64_t value) {
    return write(&value, sizeof(value));
}
status_t Parcel::writeBool(bool value) {
    return writeInt32(value ? 1 : 0);
}

status_t Parcel::writeCString(const char* text) {
    if (text == nullptr) return fail(BAD_VALUE);
    return write(text, strlen(text) + 1);
}

status_t Parcel::writeString8(const String8& text) {
    if (text.size() > kMaxSize) return fail(NO_MEMORY);
    writeInt32(static_cast<int32_t>(text.size()));
    return write(text.c_str(), text.size() + 1);
}

status_t Parcel::writeString16(const String16& text) {
    if (text.size() > kMaxSize) return fail(NO_MEMORY);
    writeInt32(static_cast<int32_t>(text.size()));
    return write(text.c_str(), (text.size() + 1) * sizeof(char16_t));
}

status_t Parcel::writeStrongBinder(const sp<IBinder>& object) {
    if (mPos % 4 != 0) return fail(BAD_VALUE);
    const size_t offset = mPos;
    const uint32_t mark[2] = {object != nullptr ? kObjectMark : kNullMark, 0};
    static_assert(sizeof(mark) == kObjectMarkSize, "the mark in the bytes");
    const status_t status = write(mark, sizeof(mark));
    if (status != OK || object == nullptr) return status;
    const auto behind = std::find_if(mObjects.begin(), mObjects.end(),
                                     [&](const Object& other) { return other.offset > offset; });
    mObjects.insert(behind, Object{static_cast<uint32_t>(offset), object});
    return OK;
}

status_t Parcel::writeInterfaceToken(const String16& interface) {
    writeInt32(kTokenMark);
    return writeString16(interface);
}

const void* Parcel::readInplace(size_t size) const {
    const size_t left = dataAvail();
    if (size > left) return nullptr;
    const uint8_t* const place = mData.data() + mPos;
    // The padding of the last item may be missing.
    mPos += std::min(padded(size), left);
    return place;
}

status_t Parcel::read(void* bytes, size_t size) const {
    const void* const place = readInplace(size);
    if (place == nullptr && size > 0) return NOT_ENOUGH_DATA;
    if (size > 0) memcpy(bytes, place, size);
    return OK;
}

status_t Parcel::readInt32(int32_t* value) const {
    return read(value, sizeof(*value));
}
status_t Parcel::readInt64(int64_t* value) const {
    return read(value, sizeof(*value));
}

status_t Parcel::readBool(bool* value) const {
    int32_t number = 0;
    const status_t status = readInt32(&number);
    if (status == OK) *value = number != 0;
    return status;
}

int32_t Parcel::readInt32() const {
    int32_t value = 0;
    readInt32(&value);
    return value;
}
bool Parcel::readBool() const {
    return readInt32() != 0;
}
String8 Parcel::readString8() const {
    String8 text;
    readString8(&text);
    return text;
}
sp<IBinder> Parcel::readStrongBinder() const {
    sp<IBinder> object;
    readNullableStrongBinder(&object);
    return object;
}

const char* Parcel::readCString() const {
    const size_t left = dataAvail();
    if (left == 0) return nullptr;
    const char* const text = reinterpret_cast<const char*>(mData.data() + mPos);
    const void* const end = memchr(text, 0, left);
    if (end == nullptr) return nullptr;
    readInplace(static_cast<size_t>(static_cast<const char*>(end) - text) + 1);
    return text;
}

// Reads the length in front of a string.
status_t Parcel::readLength(size_t* length) const {
    int32_t number = 0;
    const status_t status = readInt32(&number);
    if (status != OK) return status;
    if (number < 0) return BAD_VALUE;
    if (static_cast<size_t>(number) >= kMaxSize) return NOT_ENOUGH_DATA;
    *length = static_cast<size_t>(number);
    return OK;
}

status_t Parcel::readString8(String8* text) const {
    const size_t start = mPos;
    size_t length = 0;
    status_t status = readLength(&length);
    if (status == OK) {
        const auto* bytes = static_cast<const char*>(readInplace(length + 1));
        if (bytes == nullptr) {
            status = NOT_ENOUGH_DATA;
        } else if (bytes[length] != 0) {
            status = BAD_VALUE;
        } else {
            *text = String8(bytes, length);
        }
    }
    if (status != OK) mPos = start;
    return status;
}

status_t Parcel::readString16(String16* text) const {
    const size_t start = mPos;
    size_t length = 0;
    status_t status = readLength(&length);
    if (status == OK) {
        // Checks the length before it allocates.
        if (dataAvail() / sizeof(char16_t) <= length) {
            status = NOT_ENOUGH_DATA;
        } else {
            std::u16string units(length + 1, u'\0');
            read(&units[0], units.size() * sizeof(char16_t));
            status = units[length] == 0 ? OK : BAD_VALUE;
            if (status == OK) *text = String16(units.data(), length);
        }
    }
    if (status != OK) mPos = start;
    return status;
}

status_t Parcel::readNullableStrongBinder(sp<IBinder>* object) const {
    const size_t start = mPos;
    uint32_t mark[2];
    const status_t status = read(mark, sizeof(mark));
    if (status != OK) return status;
    if (mark[0] == kNullMark) {
        *object = nullptr;
        return OK;
    }
    const auto entry =
        std::lower_bound(mObjects.begin(), mObjects.end(), start,
                         [](const Object& other, size_t offset) { return other.offset < offset; });
    if (entry == mObjects.end() || entry->offset != start) {
        mPos = start;
        return BAD_TYPE;
    }
    *object = entry->binder;
    return OK;
}

status_t Parcel::readStrongBinder(sp<IBinder>* object) const {
    const size_t start = mPos;
    const status_t status = readNullableStrongBinder(object);
    if (status != OK || *object != nullptr) return status;
    mPos = start;
    return UNEXPECTED_NULL;
}

bool Parcel::enforceInterface(const String16& interface) const {
    const size_t start = mPos;
    const size_t units = interface.size();
    int32_t mark = 0;
    int32_t length = -1;
    const void* text = nullptr;
    if (readInt32(&mark) == OK && readInt32(&length) == OK && mark == kTokenMark &&
        length == static_cast<int32_t>(units)) {
        text = readInplace((units + 1) * sizeof(char16_t));
    }
    const bool right =
        text != nullptr && memcmp(text, interface.c_str(), (units + 1) * sizeof(char16_t)) == 0;
    if (!right) mPos = start;
    return right;
}

bool Parcel::checkInterface(const IBinder* object) const {
    return enforceInterface(object->getInterfaceDescriptor());
}

}  // namespace android

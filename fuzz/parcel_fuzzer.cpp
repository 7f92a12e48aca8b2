// Reads a parcel as a script says and compares each value and position with those of a simpler
// reader. An input is the script up to the first newline, a letter a read, then the parcel's bytes.
#include <optional>

#include "fuzz/fuzz_input.h"
#include "fuzz/fuzz_parcel.h"
#include "fuzz/fuzz_phone.h"

using namespace android;

namespace {

const String16 kInterface("fuzz");

// The simpler reader: a failed read leaves the position where it was.
class Reference {
  public:
    explicit Reference(std::string_view data) : mData(data) {}

    size_t position() const { return mPosition; }
    void seek(size_t position) { mPosition = position; }

    std::optional<std::string_view> bytes(uint64_t size) {
        const std::string_view rest = left();
        if (size > rest.size()) return std::nullopt;
        mPosition += std::min<uint64_t>((size + 3) / 4 * 4, rest.size());
        return rest.substr(0, static_cast<size_t>(size));
    }
    template <typename T>
    std::optional<T> number() {
        const auto taken = bytes(sizeof(T));
        if (!taken) return std::nullopt;
        T value;
        memcpy(&value, taken->data(), sizeof(T));
        return value;
    }
    std::optional<std::string_view> cString() {
        const size_t end = left().find('\0');
        return end == std::string_view::npos ? std::nullopt : without(bytes(end + 1), 1);
    }
    // The text behind its length, without the NUL of `unit` bytes at its end.
    std::optional<std::string_view> text(size_t unit) {
        const size_t start = mPosition;
        const auto length = number<int32_t>();
        const auto taken = length && *length >= 0
                               ? bytes((static_cast<uint64_t>(*length) + 1) * unit)
                               : std::nullopt;
        if (taken && taken->substr(taken->size() - unit) == std::string(unit, '\0'))
            return without(taken, unit);
        mPosition = start;
        return std::nullopt;
    }
    // Whether an object (true) or null comes next.
    std::optional<bool> object(const Parcel& parcel) {
        const size_t start = mPosition;
        const auto mark = bytes(Parcel::kObjectMarkSize);
        for (const Parcel::Object& object : parcel.objects()) {
            if (mark && object.offset == start) return true;
        }
        if (mark && mark->substr(0, 4) == "*on*") return false;
        mPosition = start;
        return std::nullopt;
    }
    bool interface(std::string_view token) {
        return left().substr(0, token.size()) == token && bytes(token.size());
    }

  private:
    std::string_view left() const { return mData.substr(std::min(mPosition, mData.size())); }
    static std::optional<std::string_view> without(std::optional<std::string_view> taken,
                                                   size_t end) {
        if (taken) taken->remove_suffix(end);
        return taken;
    }

    const std::string_view mData;
    size_t mPosition = 0;
};

// One parcel and its reference, read side by side.
class Reader {
  public:
    explicit Reader(std::string_view data)
        : mObject(sp<BBinder>::make()), mParcel(receivedParcel(data, mObject)), mReference(data) {}

    void read(char what, FuzzInput& script) {
        const size_t before = mParcel.dataPosition();
        const bool done = readOne(what, script);
        require(done || mParcel.dataPosition() == before, "a failed read leaves the position");
        require(mParcel.dataPosition() == mReference.position(), "the position is the reference's");
    }

  private:
    bool readOne(char what, FuzzInput& script) {
        switch (what) {
            case 'i':
                return number<int32_t>(&Parcel::readInt32);
            case 'l':
                return number<int64_t>(&Parcel::readInt64);
            case 'b':
                return boolean();
            case 'c':
                return cString();
            case 's':
                return string8();
            case 'S':
                return string16();
            case 'o':
                return object(false);
            case 'O':
                return object(true);
            case 't':
                return token();
            default:
                return seek(script.byte());
        }
    }

    // Both readers have read the same, or neither has read anything.
    template <typename Value>
    static bool same(bool read, const std::optional<Value>& expected, const Value& value) {
        require(read == expected.has_value(), "both or neither can read it");
        require(!read || *expected == value, "both read the same");
        return read;
    }

    template <typename T>
    bool number(status_t (Parcel::*reads)(T*) const) {
        T value{};
        return same((mParcel.*reads)(&value) == OK, mReference.number<T>(), value);
    }
    bool boolean() {
        bool value = false;
        const bool read = mParcel.readBool(&value) == OK;
        const auto number = mReference.number<int32_t>();
        return same(read, number ? std::optional(*number != 0) : std::nullopt, value);
    }
    bool cString() {
        const char* const text = mParcel.readCString();
        return same(text != nullptr, mReference.cString(),
                    std::string_view(text != nullptr ? text : ""));
    }
    bool string8() {
        String8 text;
        const bool read = mParcel.readString8(&text) == OK;
        return same(read, mReference.text(1), std::string_view(text.c_str(), text.size()));
    }
    bool string16() {
        String16 text;
        const bool read = mParcel.readString16(&text) == OK;
        return same(read, mReference.text(sizeof(char16_t)),
                    std::string_view(reinterpret_cast<const char*>(text.c_str()),
                                     text.size() * sizeof(char16_t)));
    }
    bool object(bool nullable) {
        sp<IBinder> object;
        const size_t before = mReference.position();
        auto expected = mReference.object(mParcel);
        if (!nullable && expected == false) {
            expected = std::nullopt;
            mReference.seek(before);
        }
        const status_t status = nullable ? mParcel.readNullableStrongBinder(&object)
                                         : mParcel.readStrongBinder(&object);
        return same(status == OK, expected, object == mObject);
    }
    bool token() {
        static const std::string& bytes = *new std::string(tokenOf(kInterface));
        const bool read = mParcel.enforceInterface(kInterface);
        require(read == mReference.interface(bytes), "both or neither take the token");
        return read;
    }
    bool seek(size_t position) {
        mParcel.setDataPosition(position);
        mReference.seek(position);
        return true;
    }

    static std::string tokenOf(const String16& interface) {
        Parcel parcel;
        parcel.writeInterfaceToken(interface);
        // The padding behind it may be missing.
        return {reinterpret_cast<const char*>(parcel.data()),
                2 * sizeof(int32_t) + (interface.size() + 1) * sizeof(char16_t)};
    }

    const sp<IBinder> mObject;
    const Parcel mParcel;
    Reference mReference;
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    FuzzInput input(data, size);
    const std::string_view text = input.until('\n');
    FuzzInput script(reinterpret_cast<const uint8_t*>(text.data()), text.size());
    Reader reader(input.rest());
    while (!script.empty()) reader.read(static_cast<char>(script.byte()), script);
    return 0;
}

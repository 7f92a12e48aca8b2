#include <binder/Parcel.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <functional>

#include "platform/binder/testing/test_service.h"

using namespace android;

namespace {

// One item of each kind: how it is written, and whether it reads back as written.
struct Item {
    std::function<void(Parcel&)> write;
    std::function<bool(const Parcel&)> read;
};

const String16 kText("sixteen");

template <typename T, typename A>
Item item(status_t (Parcel::*write)(A), status_t (Parcel::*read)(T*) const, T value) {
    return {[=](Parcel& parcel) { (parcel.*write)(value); },
            [=](const Parcel& parcel) {
                T got{};
                return (parcel.*read)(&got) == OK && got == value;
            }};
}

const Item kItems[] = {
    item<int32_t>(&Parcel::writeInt32, &Parcel::readInt32, -7),
    item<int64_t>(&Parcel::writeInt64, &Parcel::readInt64, INT64_MIN + 1),
    item<bool>(&Parcel::writeBool, &Parcel::readBool, true),
    {[](Parcel& parcel) { parcel.writeCString("four"); },
     [](const Parcel& parcel) {
         const char* const text = parcel.readCString();
         return text != nullptr && text == std::string("four");
     }},
    item<String8>(&Parcel::writeString8, &Parcel::readString8, String8("t\0xt\xc3\xa9", 6)),
    item<String8>(&Parcel::writeString8, &Parcel::readString8, String8()),
    {[](Parcel& parcel) { parcel.writeInterfaceToken(kText); },
     [](const Parcel& parcel) {
         return !parcel.enforceInterface(String16("sixteem")) && parcel.enforceInterface(kText);
     }},
    item<String16>(&Parcel::writeString16, &Parcel::readString16, kText),
    item<sp<IBinder>>(&Parcel::writeStrongBinder, &Parcel::readNullableStrongBinder, nullptr),
};

// Counts the items that read back before the first failure, which must not move the position.
size_t readBack(const Parcel& parcel) {
    size_t count = 0, end = 0;
    for (; count < std::size(kItems) && kItems[count].read(parcel); ++count)
        end = parcel.dataPosition();
    EXPECT_EQ(end, parcel.dataPosition()) << count;
    return count;
}

TEST(Parcel, everyTruncationReadsWhatIsWholeAndNothingElse) {
    Parcel whole;
    std::vector<size_t> ends;
    for (const Item& item : kItems) {
        item.write(whole);
        EXPECT_EQ(0u, whole.dataSize() % 4);
        ends.push_back(whole.dataSize());
    }
    ASSERT_EQ(OK, whole.errorCheck());
    whole.setDataPosition(0);
    EXPECT_EQ(std::size(kItems), readBack(whole));
    EXPECT_EQ(0u, whole.dataAvail());
    for (size_t size = 0; size <= whole.dataSize(); ++size) {
        Parcel part;
        part.setData(whole.data(), size);
        const auto fit = std::upper_bound(ends.begin(), ends.end(), size) - ends.begin();
        // A string's padding may be missing.
        const auto count = static_cast<ptrdiff_t>(readBack(part));
        EXPECT_TRUE(count == fit || count == fit + 1) << size;
    }
}

TEST(Parcel, lengthsThatLieAreRefused) {
    for (const int32_t length : {-1, INT32_MIN, INT32_MAX, 9}) {
        Parcel parcel;
        parcel.writeInt32(length);
        parcel.writeInt64(0);
        parcel.setDataPosition(0);
        String8 text;
        String16 text16;
        EXPECT_NE(OK, parcel.readString8(&text));
        EXPECT_NE(OK, parcel.readString16(&text16));
        EXPECT_EQ(0u, parcel.dataPosition());
    }
    Parcel unterminated;
    unterminated.writeInt32(3);
    unterminated.write("abcd", 4);
    unterminated.setDataPosition(0);
    String8 text;
    EXPECT_EQ(BAD_VALUE, unterminated.readString8(&text));
    unterminated.setDataPosition(4);
    EXPECT_EQ(nullptr, unterminated.readCString());
    unterminated.setDataPosition(400);
    EXPECT_EQ(nullptr, unterminated.readCString());
    EXPECT_EQ(0u, unterminated.dataAvail());
}

TEST(Parcel, objectsAreThoseWrittenAsSuch) {
    const sp<IBinder> object = sp<binder_test::TestService>::make();
    Parcel parcel;
    parcel.writeStrongBinder(object);
    parcel.writeStrongBinder(object);
    parcel.setDataPosition(0);
    EXPECT_EQ(object, parcel.readStrongBinder());

    // The same bytes without the table are no object.
    Parcel bytes;
    bytes.setData(parcel.data(), parcel.dataSize());
    sp<IBinder> read;
    EXPECT_EQ(BAD_TYPE, bytes.readStrongBinder(&read));
    EXPECT_EQ(nullptr, read);

    // Overwriting part of a mark drops its object; the neighbour stays.
    parcel.setDataPosition(4);
    parcel.writeInt32(1);
    ASSERT_EQ(1u, parcel.objects().size());
    EXPECT_EQ(object, parcel.readStrongBinder());
    parcel.setDataPosition(0);
    EXPECT_EQ(BAD_TYPE, parcel.readStrongBinder(&read));
}

TEST(Parcel, growthIsBoundedAndTheFirstFailureStays) {
    Parcel parcel;
    ASSERT_NE(nullptr, parcel.writeInplace(Parcel::kMaxSize));
    EXPECT_EQ(NO_MEMORY, parcel.writeInt32(1));
    EXPECT_EQ(Parcel::kMaxSize, parcel.dataSize());
    parcel.setDataPosition(0);
    EXPECT_EQ(NO_MEMORY, parcel.writeInt32(1));
    EXPECT_EQ(NO_MEMORY, parcel.errorCheck());
    parcel = Parcel();
    EXPECT_EQ(OK, parcel.writeInt32(1));
    parcel.setDataPosition(SIZE_MAX - 2);
    EXPECT_EQ(NO_MEMORY, parcel.writeInt32(1));
}

}  // namespace

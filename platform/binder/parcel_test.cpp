#include <binder/Parcel.h>
#include <gtest/gtest.h>

#include <algorithm>

#include "platform/binder/testing/test_service.h"

using namespace android;

namespace {

const String16 kText("sixteen");
const String8 kBytes("t\0xt\xc3\xa9", 6);

// Reads an item of each kind back, up to the first failure, which must not move the position.
// Returns the position behind each.
std::vector<size_t> readBack(const Parcel& parcel) {
    std::vector<size_t> ends{0};
    const auto done = [&](bool read) {
        if (read) ends.push_back(parcel.dataPosition());
        return read;
    };
    int64_t number = 0;
    const char* text = nullptr;
    String8 text8;
    sp<IBinder> object;
    (void)(done(parcel.readInt32() == -7) &&
           done(parcel.readInt64(&number) == OK && number == INT64_MIN + 1) &&
           done(parcel.readBool()) &&
           done((text = parcel.readCString()) != nullptr && text == std::string("four")) &&
           done(parcel.readString8(&text8) == OK && text8 == kBytes) &&
           done(!parcel.enforceInterface(String16("sixteem")) && parcel.enforceInterface(kText)) &&
           done(parcel.readNullableStrongBinder(&object) == OK && object == nullptr));
    EXPECT_EQ(ends.back(), parcel.dataPosition());
    return ends;
}

TEST(ParcelTest, ATruncatedOneReadsTheItemsThatAreWholeAndNothingElse) {
    Parcel whole;
    whole.writeInt32(-7);
    whole.writeInt64(INT64_MIN + 1);
    whole.writeBool(true);
    whole.writeCString("four");
    whole.writeString8(kBytes);
    whole.writeInterfaceToken(kText);
    whole.writeStrongBinder(nullptr);
    EXPECT_EQ(OK, whole.errorCheck());
    whole.setDataPosition(0);
    const std::vector<size_t> ends = readBack(whole);
    ASSERT_EQ(8u, ends.size());
    EXPECT_EQ(0u, whole.dataAvail());
    for (size_t size = 0; size <= whole.dataSize(); ++size) {
        Parcel part;
        part.setData(whole.data(), size);
        const auto fit = std::upper_bound(ends.begin(), ends.end(), size) - ends.begin();
        // A string's padding may be missing.
        const auto count = static_cast<ptrdiff_t>(readBack(part).size());
        EXPECT_TRUE(count == fit || count == fit + 1) << size;
    }
}

TEST(ParcelTest, RefusesLengthsThatLie) {
    String8 text;
    String16 text16;
    for (const int32_t length : {-1, INT32_MAX, 9}) {
        Parcel parcel;
        parcel.writeInt32(length);
        parcel.writeInt64(0);
        parcel.setDataPosition(0);
        EXPECT_NE(OK, parcel.readString8(&text));
        EXPECT_NE(OK, parcel.readString16(&text16));
        EXPECT_EQ(0u, parcel.dataPosition());
    }
    Parcel unterminated;
    unterminated.writeInt32(3);
    unterminated.write("abcd", 4);
    unterminated.setDataPosition(0);
    EXPECT_EQ(BAD_VALUE, unterminated.readString8(&text));
    unterminated.setDataPosition(4);
    EXPECT_EQ(nullptr, unterminated.readCString());
    unterminated.setDataPosition(400);
    EXPECT_EQ(0u, unterminated.dataAvail());
}

TEST(ParcelTest, ObjectsAreThoseWrittenAsSuch) {
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

TEST(ParcelTest, BoundsItsGrowthAndKeepsTheFirstFailure) {
    Parcel parcel;
    ASSERT_NE(nullptr, parcel.writeInplace(Parcel::kMaxSize));
    EXPECT_EQ(NO_MEMORY, parcel.writeInt32(1));
    EXPECT_EQ(Parcel::kMaxSize, parcel.dataSize());
    parcel.setDataPosition(0);
    EXPECT_EQ(NO_MEMORY, parcel.writeInt32(1));
    EXPECT_EQ(NO_MEMORY, parcel.errorCheck());
    parcel = Parcel();
    parcel.setDataPosition(SIZE_MAX - 2);
    EXPECT_EQ(NO_MEMORY, parcel.writeInt32(1));
}

}  // namespace

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

const String8 kText("t\0xt\xc3\xa9", 6);
const String16 kText16("sixteen");

const Item kItems[] = {
    {[](Parcel& p) { p.writeInt32(-7); },
     [](const Parcel& p) {
         int32_t v;
         return p.readInt32(&v) == OK && v == -7;
     }},
    {[](Parcel& p) { p.writeInt64(INT64_MIN + 1); },
     [](const Parcel& p) {
         int64_t v;
         return p.readInt64(&v) == OK && v == INT64_MIN + 1;
     }},
    {[](Parcel& p) { p.writeBool(true); },
     [](const Parcel& p) {
         bool v;
         return p.readBool(&v) == OK && v;
     }},
    {[](Parcel& p) { p.writeCString("four"); },
     [](const Parcel& p) {
         const char* v = p.readCString();
         return v != nullptr && v == std::string("four");
     }},
    {[](Parcel& p) { p.writeString8(kText); },
     [](const Parcel& p) {
         String8 v;
         return p.readString8(&v) == OK && v == kText;
     }},
    {[](Parcel& p) { p.writeString8(String8()); },
     [](const Parcel& p) {
         String8 v("x");
         return p.readString8(&v) == OK && v.isEmpty();
     }},
    {[](Parcel& p) { p.writeInterfaceToken(kText16); },
     [](const Parcel& p) {
         return !p.enforceInterface(String16("sixteem")) && p.enforceInterface(kText16);
     }},
    {[](Parcel& p) { p.writeString16(kText16); },
     [](const Parcel& p) {
         String16 v;
         return p.readString16(&v) == OK && v == kText16;
     }},
    {[](Parcel& p) { p.writeStrongBinder(nullptr); },
     [](const Parcel& p) {
         sp<IBinder> v;
         return p.readNullableStrongBinder(&v) == OK && v == nullptr;
     }},
};

// How many items, from the first on, read back; a failed one must not move the position.
size_t readBack(const Parcel& parcel) {
    size_t count = 0;
    for (const Item& item : kItems) {
        const size_t before = parcel.dataPosition();
        if (!item.read(parcel)) {
            EXPECT_EQ(before, parcel.dataPosition());
            break;
        }
        ++count;
    }
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
        const size_t fit =
            static_cast<size_t>(std::upper_bound(ends.begin(), ends.end(), size) - ends.begin());
        // A string's padding may be missing.
        const size_t count = readBack(part);
        EXPECT_GE(count, fit);
        EXPECT_LE(count, fit + 1);
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

    // One overwritten in part is none any more; its neighbour still is.
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
    parcel.freeData();
    EXPECT_EQ(OK, parcel.writeInt32(1));
    parcel.setDataPosition(SIZE_MAX - 2);
    EXPECT_EQ(NO_MEMORY, parcel.writeInt32(1));
}

}  // namespace

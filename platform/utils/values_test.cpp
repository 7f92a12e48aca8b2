#include <gtest/gtest.h>
#include <utils/SortedVector.h>
#include <utils/String16.h>
#include <utils/String8.h>
#include <utils/Timers.h>
#include <utils/Vector.h>

#include <climits>
#include <string>

namespace android {
namespace {

TEST(ValuesTest, TimeoutDelaysAreRoundedUpAndClamped) {
    EXPECT_EQ(0, toMillisecondTimeoutDelay(5, 5));
    EXPECT_EQ(0, toMillisecondTimeoutDelay(6, 5));
    EXPECT_EQ(1, toMillisecondTimeoutDelay(0, 1));
    EXPECT_EQ(1, toMillisecondTimeoutDelay(0, 1000000));
    EXPECT_EQ(2, toMillisecondTimeoutDelay(0, 1000001));
    EXPECT_EQ(INT_MAX, toMillisecondTimeoutDelay(0, INT64_MAX));
    EXPECT_EQ(INT_MAX, toMillisecondTimeoutDelay(INT64_MIN, INT64_MAX));
}

TEST(ValuesTest, SortedContainersHoldEachKeyOnceInOrder) {
    SortedVector<int> sorted;
    for (const int item : {5, 1, 3, 1, 5}) sorted.add(item);
    ASSERT_EQ(3u, sorted.size());
    for (const int item : {1, 3, 5}) EXPECT_EQ(item / 2, sorted.indexOf(item));
    EXPECT_EQ(NAME_NOT_FOUND, sorted.indexOf(4));
}

TEST(ValuesDeathTest, ReadingOutsideAVectorIsFatal) {
    Vector<int> items;
    items.add(1);
    EXPECT_DEATH(items[1], "index=1 out of range \\(1\\)");
    SortedVector<int> sorted;
    EXPECT_DEATH(sorted[0], "index=0 out of range \\(0\\)");
}

TEST(ValuesTest, NamesSurviveTheWayToUtf16AndBack) {
    EXPECT_EQ(String8("android.ui.I"), String8(String16("android.ui.I")));
    EXPECT_EQ(String8("?z"), String8(String16("\xffz"))) << "no name of anything";
}

}  // namespace
}  // namespace android

#include <gtest/gtest.h>
#include <utils/SortedVector.h>
#include <utils/Timers.h>
#include <utils/Vector.h>

#include <climits>

namespace android {
namespace {

TEST(ValuesTest, TimeoutDelaysAreRoundedUpAndClamped) {
    EXPECT_EQ(0, toMillisecondTimeoutDelay(6, 5));
    EXPECT_EQ(0, toMillisecondTimeoutDelay(5, 5));
    EXPECT_EQ(1, toMillisecondTimeoutDelay(0, 1000000));
    EXPECT_EQ(2, toMillisecondTimeoutDelay(0, 1000001));
    EXPECT_EQ(INT_MAX, toMillisecondTimeoutDelay(INT64_MIN, INT64_MAX));
}

TEST(ValuesTest, SortedVectorsHoldEachItemOnceInOrder) {
    SortedVector<int> sorted;
    for (const int item : {5, 1, 3, 1, 5}) sorted.add(item);
    ASSERT_EQ(3u, sorted.size());
    for (const int item : {1, 3, 5}) EXPECT_EQ(item / 2, sorted.indexOf(item));
    EXPECT_EQ(NAME_NOT_FOUND, sorted.indexOf(4));
}

TEST(ValuesTest, ReadingOutsideAVectorIsFatal) {
    Vector<int> items;
    items.add(1);
    EXPECT_DEATH(items[1], "index=1 out of range \\(1\\)");
    SortedVector<int> sorted;
    EXPECT_DEATH(sorted[0], "index=0 out of range \\(0\\)");
}

}  // namespace
}  // namespace android

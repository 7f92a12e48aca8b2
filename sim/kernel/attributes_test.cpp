#include <errno.h>
#include <fcntl.h>
#include <unistd.h>

#include <thread>

#include "phone/phone.h"
#include "sim/kernel/gpu.h"
#include "sim/kernel/sysfs_attributes.h"
#include "tests/support/phone_fixture.h"

namespace sim {
namespace {

class AttributesTest : public PhoneTest {
  protected:
    Fd open(const char* path) { return Fd(phone::open(path, O_RDONLY)); }
    // The events of a poll for changes that does not wait.
    int ready(const Fd& fd) {
        pollfd watch = {fd.get(), POLLPRI | POLLERR, 0};
        return phone::poll(&watch, 1, 0) == 1 ? watch.revents : 0;
    }
    // The text of one read, or its error.
    std::string text(const Fd& fd, off_t offset = 0) {
        std::string buffer(10000, '\0');
        const ssize_t got = phone::pread(fd.get(), buffer.data(), buffer.size(), offset);
        return got < 0 ? strerror(errno) : buffer.substr(0, static_cast<size_t>(got));
    }
    // The whole text by plain reads of at most `most` bytes.
    std::string readPlainly(const Fd& fd, ssize_t most = 4096) {
        std::string all, block(10000, '\0');
        while (const ssize_t got = read(fd.get(), block.data(), block.size())) {
            EXPECT_LE(got, most);
            all.append(block, 0, static_cast<size_t>(std::max<ssize_t>(got, 0)));
        }
        return all;
    }
    static constexpr int kReady = POLLPRI | POLLERR;
};

TEST_F(AttributesTest, IsReadyUntilItIsReadFromItsStart) {
    const Fd fd = open(Gpu::kTimestamp),
             other = open("//sys/class/kgsl/./kgsl-3d0/snapshot/timestamp");
    EXPECT_EQ(kReady, ready(fd));
    EXPECT_EQ("\n", text(fd, 1));
    EXPECT_EQ(kReady, ready(fd)) << "neither a poll nor a read elsewhere consumes it";
    EXPECT_EQ("0\n", text(fd));
    EXPECT_EQ(0, ready(fd));
    EXPECT_EQ(kReady, ready(other)) << "each descriptor has its own";

    phone().gpu().fault({"12\n", "", "0", ""});
    phone().gpu().fault({"13\n", "", "0", ""});
    EXPECT_EQ(kReady, ready(fd));
    EXPECT_EQ("13\n", text(fd));
    EXPECT_EQ(0, ready(fd)) << "two notifications are one wake";
    EXPECT_EQ("0\n", readPlainly(fd)) << "a plain read has the text of the open";

    std::thread waker([&] {
        EXPECT_TRUE(phone().attributes().waitIdle());
        phone().gpu().fault({});
    });
    pollfd watch[] = {{fd.get(), POLLPRI, 0}, {-1, POLLIN, 0}};
    EXPECT_EQ(1, phone::poll(watch, 2, -1));
    EXPECT_EQ(kReady, watch[0].revents);
    waker.join();

    file("/data/other", "other");
    ASSERT_EQ(fd.get(), dup2(open("/data/other").get(), fd.get()));
    EXPECT_EQ("other", text(fd)) << "closed behind our back";
}

TEST_F(AttributesTest, GivesTheBytesInReadsOfALimitedSize) {
    for (const size_t size : {0, 4096, 100000}) {
        const std::string snapshot = Gpu::snapshotOf(size);
        phone().gpu().fault({"1\n", "", "0", snapshot});
        const Fd fd = open(Gpu::kDump);
        EXPECT_EQ(snapshot.substr(0, 4096), text(fd));
        EXPECT_TRUE(snapshot == readPlainly(fd)) << size;
    }
    struct stat dump, timestamp;
    EXPECT_EQ(0, phone::stat(Gpu::kDump, &dump) | phone::stat(Gpu::kTimestamp, &timestamp));
    EXPECT_TRUE(dump.st_size == 0 && timestamp.st_size == 4096);
    EXPECT_EQ(nullptr, phone::fopen(Gpu::kDump, "w"));
    EXPECT_EQ("ok", tell("gpu fault --hash a\n --size 5 --timestamp 7 --control 1"));
    EXPECT_EQ("7", text(open(Gpu::kTimestamp)));
    EXPECT_EQ("1", text(open(Gpu::kControl)));
    EXPECT_EQ("a\n", text(open(Gpu::kHashId)));
    EXPECT_EQ("ok", tell("gpu short-reads 2"));
    EXPECT_EQ(Gpu::snapshotOf(5), readPlainly(open(Gpu::kDump), 2));
    EXPECT_EQ("ok", tell("gpu unreadable dump"));
    EXPECT_FALSE(open(Gpu::kDump).valid());
}

TEST_F(AttributesTest, FollowsAReplacedDeviceAndEndsWithAVanishedOne) {
    const std::string first(12000, '1'), second(10000, '2');
    std::string block(4096, '\0');
    phone().gpu().fault({"1\n", "", "0", first});
    const int next = open(Gpu::kDump).get();
    Fd copied = open(Gpu::kDump);
    phone().gpu().vanish();
    phone().gpu().appear();
    copied = Fd();
    EXPECT_EQ(next, open(Gpu::kDump).get()) << "no descriptor stays behind";

    phone().gpu().fault({"1\n", "", "0", first});
    copied = open(Gpu::kDump);
    EXPECT_EQ(4096, read(copied.get(), block.data(), block.size()));
    phone().gpu().fault({"2\n", "", "0", second});
    EXPECT_EQ(second.substr(4096), readPlainly(copied)) << "what the device holds by then";
    copied = open(Gpu::kDump);
    EXPECT_EQ(4096, read(copied.get(), block.data(), block.size()));
    EXPECT_EQ("ok", tell("gpu vanish"));
    EXPECT_EQ(-1, read(copied.get(), block.data(), block.size()));
    EXPECT_FALSE(open(Gpu::kTimestamp).valid());
    EXPECT_EQ("ok", tell("gpu appear"));
    EXPECT_EQ(0, read(copied.get(), block.data(), block.size())) << "it stays dead";

    const Fd fd = open(Gpu::kTimestamp);
    phone().gpu().fault({"3\n", "", "0", Gpu::snapshotOf(60000)});
    phone().gpu().vanishAfter(50000);
    EXPECT_TRUE(Gpu::snapshotOf(50000) == readPlainly(open(Gpu::kDump)));
    for (int i = 0; i < 2; ++i) {
        EXPECT_EQ(strerror(ENODEV), text(fd));
        EXPECT_EQ(kReady, ready(fd)) << "for ever";
    }
    phone().gpu().appear();
    EXPECT_EQ(strerror(ENODEV), text(fd)) << "the device that is back is another one";
}

}  // namespace
}  // namespace sim

#pragma once

#include <android/log.h>
#include <gtest/gtest.h>

#include <chrono>
#include <condition_variable>
#include <filesystem>
#include <mutex>
#include <string>
#include <vector>

#include "sim/base/clock.h"
#include "sim/phone.h"
#include "sim/shell/shell.h"
#include "sim/userspace/program_faults.h"
#include "sim/userspace/properties.h"
#include "sim/userspace/services.h"

// A test on a fresh phone, whose folder is removed at the end. A process has one phone, so it runs
// one such test; ctest starts a process for each.
//
// Paths are phone paths. Threads: any.
class PhoneTest : public testing::Test {
  protected:
    struct Line {
        int priority;
        std::string tag;
        std::string message;
        std::string text;  // "P TAG: MESSAGE"
        pid_t tid;
    };

    void SetUp() override;
    void TearDown() override;

    sim::Phone& phone() { return sim::Phone::get(); }

    // Writes a file and creates its directories.
    void file(const std::string& path, const std::string& content);
    // The contents of a file; "" and a test failure when it cannot be read.
    std::string contents(const std::string& path);
    bool exists(const std::string& path) {
        return std::filesystem::exists(std::filesystem::symlink_status(host(path)));
    }
    // The names in a directory, sorted.
    std::vector<std::string> names(const std::string& directory);

    // Whether this process has logged the line, "P TAG: MESSAGE", at least `times` times.
    // waitLogged() waits for that, at most kTimeout.
    bool logged(const std::string& line, int times = 1);
    bool waitLogged(const std::string& line, int times = 1);
    // The messages logged under a tag, or all lines, in order.
    std::vector<std::string> logLines(const std::string& tag);
    std::vector<Line> log();
    void forgetLog();
    // The lines logged under a tag, each "P message\n"; then forgets the whole log.
    std::string said(const std::string& tag);

    // The command lines that the product has passed to the phone's shell.
    std::vector<std::string> commands() { return phone().shell().history(); }
    // Those since the last call, each with a newline.
    std::string ran();
    // How often a text contains a part.
    static int count(const std::string& text, const std::string& part);

    // Sends the words between the blanks to the phone's control socket, as another process would:
    // "ok", or the reply's last text. The first call serves the phone unless another process does.
    std::string tell(const std::string& line);

    bool setProperty(const std::string& key, const std::string& value) {
        return phone().properties().set(key, value);
    }
    std::string property(const std::string& key) {
        return phone().properties().get(key).value_or("");
    }

    // How many descriptors this process has open.
    static long openFiles() {
        return std::distance(std::filesystem::directory_iterator("/proc/self/fd"), {});
    }

    // Advances the phone's clock. When a thread must be asleep by then, waitForSleepers() first.
    void advance(std::chrono::nanoseconds step) { sim::Clock::get().advance(step); }
    void holdClock() { sim::Clock::get().hold(); }
    // Holds the clock at that time since the epoch.
    void holdClock(std::chrono::seconds wall);
    bool waitForSleepers(int count) { return sim::Clock::get().waitForSleepers(count, kTimeout); }

    static constexpr std::chrono::seconds kTimeout{30};

    // The host's path of a phone path.
    std::string host(const std::string& path) { return mFolder + "/fs/" + path; }

  private:
    int timesLogged(const std::string& line) const;  // under mMutex

    std::string mFolder;
    bool mServed = false;  // by tell()
    size_t mRan = 0;       // command lines returned by ran()
    std::mutex mMutex;
    std::condition_variable mChanged;
    std::vector<Line> mLines;  // under mMutex
};

#include "tests/support/phone_test.h"

#include <stdlib.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <sstream>

#include "sim/clock.h"
#include "sim/log.h"
#include "sim/properties.h"
#include "sim/shell.h"

namespace fs = std::filesystem;

void PhoneTest::SetUp() {
    std::string folder = testing::TempDir() + "pelto-XXXXXX";
    ASSERT_NE(mkdtemp(folder.data()), nullptr) << folder;
    mFolder = fs::canonical(folder).string();
    sim::Phone::create(mFolder).log().observe([this](const sim::Log::Record& record) {
        std::lock_guard<std::mutex> lock(mMutex);
        mLines.push_back(
            {record.priority, std::string(record.tag), std::string(record.message), record.tid});
        mChanged.notify_all();
    });
}

void PhoneTest::TearDown() {
    if (sim::Phone* open = sim::Phone::find()) open->log().observe(nullptr);
    if (HasFailure()) {
        for (const Line& line : log()) {
            std::cerr << sim::Log::letter(line.priority) << ' ' << line.tag << ": " << line.message
                      << '\n';
        }
    }
    std::error_code ignored;
    if (!mFolder.empty()) fs::remove_all(mFolder, ignored);
}

void PhoneTest::file(const std::string& path, const std::string& content) {
    fs::create_directories(fs::path(host(path)).parent_path());
    std::ofstream out(host(path), std::ios::binary);
    out << content;
    ASSERT_TRUE(out.flush()) << path;
}

std::string PhoneTest::contents(const std::string& path) {
    std::ifstream in(host(path), std::ios::binary);
    EXPECT_TRUE(in) << path;
    std::ostringstream text;
    text << in.rdbuf();
    return text.str();
}

bool PhoneTest::exists(const std::string& path) {
    return fs::exists(fs::symlink_status(host(path)));
}

std::vector<std::string> PhoneTest::names(const std::string& directory) {
    std::vector<std::string> found;
    for (const auto& entry : fs::directory_iterator(host(directory)))
        found.push_back(entry.path().filename().string());
    std::sort(found.begin(), found.end());
    return found;
}

int PhoneTest::count(const Line& wanted) const {
    return static_cast<int>(std::count_if(mLines.begin(), mLines.end(), [&](const Line& line) {
        return line.priority == wanted.priority && line.tag == wanted.tag &&
               line.message == wanted.message;
    }));
}

bool PhoneTest::logged(int priority, const std::string& tag, const std::string& message,
                       int times) {
    std::lock_guard<std::mutex> lock(mMutex);
    return count({priority, tag, message, 0}) >= times;
}

bool PhoneTest::waitLogged(int priority, const std::string& tag, const std::string& message,
                           int times) {
    const Line wanted{priority, tag, message, 0};
    std::unique_lock<std::mutex> lock(mMutex);
    return mChanged.wait_for(lock, kPatience, [&] { return count(wanted) >= times; });
}

std::vector<std::string> PhoneTest::logLines(const std::string& tag) {
    std::vector<std::string> messages;
    for (const Line& line : log()) {
        if (line.tag == tag) messages.push_back(line.message);
    }
    return messages;
}

std::vector<PhoneTest::Line> PhoneTest::log() {
    std::lock_guard<std::mutex> lock(mMutex);
    return {mLines.begin(), mLines.end()};
}

void PhoneTest::forgetLog() {
    std::lock_guard<std::mutex> lock(mMutex);
    mLines.clear();
}

std::vector<std::string> PhoneTest::commands() {
    return phone().shell().history();
}

bool PhoneTest::setProperty(const std::string& key, const std::string& value) {
    return phone().properties().set(key, value);
}

std::string PhoneTest::property(const std::string& key) {
    return phone().properties().get(key).value_or("");
}

void PhoneTest::advance(std::chrono::nanoseconds step) {
    sim::Clock::get().advance(step);
}

void PhoneTest::holdClock() {
    sim::Clock::get().hold();
}

bool PhoneTest::waitForSleepers(int sleepers) {
    return sim::Clock::get().waitForSleepers(sleepers, kPatience);
}

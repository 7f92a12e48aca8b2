#include "tests/support/phone_fixture.h"

#include <stdlib.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <iterator>
#include <sstream>
#include <utility>

#include "sim/control/request.h"
#include "sim/control/server.h"
#include "sim/userspace/log.h"

namespace fs = std::filesystem;

void PhoneTest::SetUp() {
    // Longer than a socket's address, which holds 108 bytes.
    std::string folder = testing::TempDir() + std::string(100, 'p') + "-XXXXXX";
    ASSERT_NE(mkdtemp(folder.data()), nullptr) << folder;
    mFolder = fs::canonical(folder).string();
    sim::Phone::create(mFolder).log().observe([this](const sim::Log::Record& record) {
        const std::string tag(record.tag), message(record.message);
        std::lock_guard<std::mutex> lock(mMutex);
        mLines.push_back({record.priority, tag, message,
                          sim::Log::letter(record.priority) + (" " + tag + ": " + message),
                          record.tid});
        mChanged.notify_all();
    });
}

void PhoneTest::TearDown() {
    if (sim::Phone* open = sim::Phone::find()) open->log().observe(nullptr);
    for (const Line& line : HasFailure() ? log() : std::vector<Line>())
        std::cerr << line.text << '\n';
    if (sim::Phone* open = sim::Phone::find()) open->services().awaitStopped();
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
    return {std::istreambuf_iterator<char>(in), {}};
}

std::vector<std::string> PhoneTest::names(const std::string& directory) {
    std::vector<std::string> found;
    for (const auto& entry : fs::directory_iterator(host(directory)))
        found.push_back(entry.path().filename().string());
    std::sort(found.begin(), found.end());
    return found;
}

int PhoneTest::timesLogged(const std::string& wanted) const {
    return static_cast<int>(std::count_if(mLines.begin(), mLines.end(),
                                          [&](const Line& line) { return line.text == wanted; }));
}

bool PhoneTest::logged(const std::string& line, int times) {
    std::lock_guard<std::mutex> lock(mMutex);
    return timesLogged(line) >= times;
}

bool PhoneTest::waitLogged(const std::string& line, int times) {
    std::unique_lock<std::mutex> lock(mMutex);
    return mChanged.wait_for(lock, kTimeout, [&] { return timesLogged(line) >= times; });
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
    return mLines;
}

void PhoneTest::forgetLog() {
    std::lock_guard<std::mutex> lock(mMutex);
    mLines.clear();
}

std::string PhoneTest::said(const std::string& tag) {
    std::string text;
    for (const Line& line : log()) {
        if (line.tag == tag) text += sim::Log::letter(line.priority) + (" " + line.message + "\n");
    }
    forgetLog();
    return text;
}

std::string PhoneTest::ran() {
    const std::vector<std::string> all = commands();
    std::string text;
    for (; mRan < all.size(); ++mRan) text += all[mRan] + "\n";
    return text;
}

int PhoneTest::count(const std::string& text, const std::string& part) {
    int found = 0;
    for (size_t at = text.find(part); at != text.npos; at = text.find(part, at + 1)) ++found;
    return found;
}

void PhoneTest::holdClock(std::chrono::seconds wall) {
    holdClock();
    advance(wall - std::chrono::nanoseconds(sim::Clock::get().wallNanos()));
}

std::string PhoneTest::tell(const std::string& line) {
    if (!std::exchange(mServed, true)) phone().control().serve();
    std::istringstream text(line);
    std::vector<std::string> words;
    for (std::string word; std::getline(text, word, ' ');) words.push_back(word);
    const sim::Reply reply = sim::controlRequest(mFolder, words);
    return reply.texts.empty() ? std::string(reply.ok ? "ok" : "error") : reply.texts.back();
}

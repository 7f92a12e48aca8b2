#include "tests/service_test.h"

#include <binder/IServiceManager.h>
#include <binder/ProcessState.h>
#include <gmock/gmock.h>
#include <ipeltoservice/IPeltoService.h>
#include <ipeltoservice/PeltoServiceCalls.h>
#include <stdlib.h>

#include <fstream>
#include <numeric>
#include <sstream>

using namespace android;

namespace {

// Behind the emulator that a program for another processor needs.
Program::Words programOf(const char* path) {
    const char* const emulator = getenv("PELTO_EMULATOR");
    std::istringstream text(emulator != nullptr ? emulator : "");
    Program::Words words;
    for (std::string word; text >> word;) words.push_back(word);
    words.push_back(path);
    return words;
}

Program::Words joined(Program::Words words, const Program::Words& more) {
    words.insert(words.end(), more.begin(), more.end());
    return words;
}

const std::string kReadyFd = std::to_string(Program::kReadyFd);

}  // namespace

status_t Recorder::onNativeEvent(const char* type, const char* info) {
    std::lock_guard<std::mutex> lock(mMutex);
    mInfos[type].push_back(info);
    mChanged.notify_all();
    return OK;
}

bool Recorder::await(const std::string& type, size_t count) {
    std::unique_lock<std::mutex> lock(mMutex);
    return mChanged.wait_for(lock, std::chrono::seconds(30),
                             [&] { return mInfos[type].size() >= count; });
}

std::vector<std::string> Recorder::infos(const std::string& type) {
    std::lock_guard<std::mutex> lock(mMutex);
    return mInfos[type];
}

Program::Words ServiceTest::hostProgram(const Words& words) {
    return joined(programOf(PELTOSERVICED_PROGRAM), words);
}

Program::Words ServiceTest::hostCommand(const Words& more) {
    return hostProgram(joined({"--phone", phone().folder(), "--ready-fd", kReadyFd}, more));
}

Program::Words ServiceTest::command(const Words& words) {
    return joined(joined(programOf(PELTO_PROGRAM), {"--phone", phone().folder()}), words);
}

Program::Words ServiceTest::captureCommand(const Words& words) {
    return joined(joined(programOf(PELTO_CAPTURE_PROGRAM), {"--phone", phone().folder()}), words);
}

Program::Words ServiceTest::listeningHostCommand() {
    return joined(programOf(LISTENING_HOST_PROGRAM),
                  {phone().folder(), kReadyFd, scratch("dispatched")});
}

ServiceTest::Result ServiceTest::run(const Words& command, const std::string& input) {
    Program program(command, input);
    const int code = program.wait();
    return {code, program.output(), program.errors()};
}

void ServiceTest::refuses(const Words& words, int code, const std::string& why) {
    const Result result = pelto(words);
    EXPECT_EQ(result.code, code) << words.front() << ": " << result.errors;
    EXPECT_THAT(result.errors, testing::HasSubstr(why));
    EXPECT_THAT(result.errors, testing::MatchesRegex("pelto: [^\n]+\n"));
    EXPECT_EQ(result.output, "");
}

sp<IBinder> ServiceTest::service() {
    return defaultServiceManager()->checkService(String16(kPeltoServiceName));
}

status_t ServiceTest::send(const std::string& type, const std::string& info) {
    const sp<IBinder> published = service();
    if (published == nullptr) return DEAD_OBJECT;
    return PeltoServiceCalls(published.get()).setEvent(String8(type), String8(info));
}

sp<Recorder> ServiceTest::record() {
    ProcessState::self()->startThreadPool();
    const sp<Recorder> recorder = new Recorder();
    EXPECT_EQ(PeltoServiceCalls(service().get()).registerNativeClient(recorder), OK);
    return recorder;
}

std::string ServiceTest::numberedEvents(int sender, int count) {
    const std::string path = scratch("events-" + std::to_string(sender));
    std::ofstream file(path);
    for (int number = 0; number < count; ++number) {
        file << "test_event sender:" << sender << ",number:" << number << '\n';
    }
    EXPECT_TRUE(file.flush()) << path;
    return path;
}

std::vector<std::string> ServiceTest::dispatched(Program& host) {
    EXPECT_EQ(send("test_written", ""), OK);
    EXPECT_EQ(host.line(), "written");
    std::ifstream file(scratch("dispatched"));
    std::vector<std::string> infos;
    for (std::string line; std::getline(file, line);) infos.push_back(line);
    return infos;
}

std::map<int, std::vector<int>> numbersBySender(const std::vector<std::string>& infos) {
    std::map<int, std::vector<int>> numbers;
    for (const std::string& info : infos) {
        int sender = -1, number = -1;
        EXPECT_EQ(sscanf(info.c_str(), "sender:%d,number:%d", &sender, &number), 2) << info;
        numbers[sender].push_back(number);
    }
    return numbers;
}

std::vector<int> upTo(size_t count) {
    std::vector<int> numbers(count);
    std::iota(numbers.begin(), numbers.end(), 0);
    return numbers;
}

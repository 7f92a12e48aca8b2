#pragma once

#include <binder/IBinder.h>
#include <ipeltoservice/IPeltoNativeClient.h>

#include <condition_variable>
#include <map>
#include <mutex>

#include "tests/program.h"
#include "tests/support/phone_test.h"

// A native client in the test's own process that keeps the events it is told of.
class Recorder : public android::BnPeltoNativeClient {
  public:
    android::status_t onNativeEvent(const char* type, const char* info) override;
    // Whether so many events of that type have come in time.
    bool await(const std::string& type, size_t count = 1);
    std::vector<std::string> infos(const std::string& type);

  private:
    std::mutex mMutex;
    std::condition_variable mChanged;
    std::map<std::string, std::vector<std::string>> mInfos;  // under mMutex
};

// A test with the programs of this build on a fresh phone. Of the service's host there are two:
// peltoserviced, and one whose listener keeps events for the test, see listening_host.cpp.
class ServiceTest : public PhoneTest {
  protected:
    using Words = Program::Words;

    // The commands of the programs of this build, on the phone but for the first.
    static Words hostProgram(const Words& words);
    Words hostCommand(const Words& more = {});
    Words command(const Words& words);
    Words captureCommand(const Words& words);
    Words listeningHostCommand();

    struct Result {
        int code;
        std::string output;
        std::string errors;
    };
    static Result run(const Words& command, const std::string& input = "/dev/null");
    Result pelto(const Words& words) { return run(command(words)); }
    // The client fails with that code and one line on stderr that says why.
    void refuses(const Words& words, int code, const std::string& why);

    // The published service as this process sees it; null without one.
    static android::sp<android::IBinder> service();
    static android::status_t send(const std::string& type, const std::string& info);
    // A recorder that the service knows.
    static android::sp<Recorder> record();
    // A file with `count` lines for `pelto send --stdin`: test events numbered by their sender.
    std::string numberedEvents(int sender, int count);

    // The informations of the test events that the listening host's listener has been called with,
    // in order. All events that this process has sent before are among them.
    std::vector<std::string> dispatched(Program& host);

  private:
    std::string scratch(const std::string& name) { return phone().folder() + "/" + name; }
};

// For each sender the numbers of its events, in the order given.
std::map<int, std::vector<int>> numbersBySender(const std::vector<std::string>& infos);
// 0, 1, ... count - 1.
std::vector<int> upTo(size_t count);

#pragma once

#include <binder/IBinder.h>

#include "tests/support/phone_fixture.h"
#include "tests/support/program.h"

// A test with the programs of this build on a fresh phone. Of the service's host there are two:
// peltoserviced, and one whose listener writes down the events it is called with, see
// listening_host.cpp.
class ServiceTest : public PhoneTest {
  protected:
    using Words = Program::Words;

    // The words before a command of this build's; empty when it is for this processor.
    static std::string emulator();
    // The commands of the programs of this build, on the phone but for the first.
    static Words hostProgram(const Words& words);
    Words hostCommand(const Words& more = {});
    Words command(const Words& words);
    Words captureCommand(const Words& words);
    Words watchCommand(const Words& more = {});
    Words listeningHostCommand(const Words& types);

    struct Result {
        int code;
        std::string output;
        std::string errors;
    };
    static Result run(const Words& command, const std::string& input = "/dev/null");
    Result pelto(const Words& words) { return run(command(words)); }
    // Starts the service as a daemon.
    Result phoneStart();
    // The client fails with that code and one line on stderr that says why.
    void refuses(const Words& words, int code, const std::string& why);

    // The published service as this process sees it; null without one.
    static android::sp<android::IBinder> service();
    static android::status_t send(const std::string& type, const std::string& info);
};

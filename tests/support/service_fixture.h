#pragma once

#include <binder/IBinder.h>

#include "tests/support/phone_fixture.h"
#include "tests/support/program.h"

// A test that runs the programs of this build on a fresh phone. The service has two hosts:
// peltoserviced, and listening_host, which prints the events that it dispatches.
class ServiceTest : public PhoneTest {
  protected:
    using Words = Program::Words;

    // Stops the service that phoneStart() has started.
    void TearDown() override {
        pelto({"phone", "stop"});
        PhoneTest::TearDown();
    }

    // The emulator's command for programs of another processor, else empty.
    static std::string emulator();
    // The command lines of this build's programs on the phone; the host's can name what lies below
    // its folder. Those of hosts and watchers say when they are ready. The client's gives the
    // service long to answer, unless `words` say otherwise.
    Words hostCommand(const Words& more = {}, const std::string& below = "");
    Words command(const Words& words);
    Words captureCommand(const Words& words);
    Words watchCommand(const Words& more = {});
    Words listeningHostCommand(const Words& types);
    Words attackerCommand(const std::string& kind);

    struct Result {
        int code;
        std::string output;
        std::string errors;
    };
    static Result run(const Words& command, const std::string& input = "/dev/null");
    Result pelto(const Words& words) { return run(command(words)); }
    // Starts the service as a daemon.
    Result phoneStart() { return pelto({"phone", "start", "--under", emulator()}); }
    // Checks that the command fails with that code and one line on stderr that contains `why`.
    static void fails(const Words& command, int code, const std::string& why);
    void refuses(const Words& words, int code, const std::string& why) {
        fails(command(words), code, why);
    }

    // The published service, looked up by this process; null without one.
    static android::sp<android::IBinder> service();
    static android::status_t send(const std::string& type, const std::string& info);
};

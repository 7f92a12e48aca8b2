#include "tests/support/service_fixture.h"

#include <binder/IServiceManager.h>
#include <gmock/gmock.h>
#include <ipeltoservice/IPeltoService.h>
#include <ipeltoservice/PeltoServiceCalls.h>
#include <stdlib.h>

#include <iterator>
#include <sstream>

using namespace android;

namespace {

Program::Words joined(Program::Words words, const Program::Words& more) {
    words.insert(words.end(), more.begin(), more.end());
    return words;
}

Program::Words programOf(const std::string& emulator, const char* path) {
    std::istringstream words(emulator);
    return joined({std::istream_iterator<std::string>(words), {}}, {path});
}

const std::string kReadyFd = std::to_string(Program::kReadyFd);

}  // namespace

std::string ServiceTest::emulator() {
    const char* const words = getenv("PELTO_EMULATOR");
    return words != nullptr ? words : "";
}

Program::Words ServiceTest::hostCommand(const Words& more, const std::string& below) {
    return joined(programOf(emulator(), PELTOSERVICED_PROGRAM),
                  joined({"--phone", phone().folder() + below, "--ready-fd", kReadyFd}, more));
}

Program::Words ServiceTest::command(const Words& words) {
    return joined(programOf(emulator(), PELTO_PROGRAM),
                  joined({"--phone", phone().folder(), "--call-timeout", "40"}, words));
}

Program::Words ServiceTest::captureCommand(const Words& words) {
    return joined(programOf(emulator(), PELTO_CAPTURE_PROGRAM),
                  joined({"--phone", phone().folder()}, words));
}

Program::Words ServiceTest::watchCommand(const Words& more) {
    return command(joined({"watch", "--ready-fd", kReadyFd}, more));
}

// With one arena and no per-thread caches, mallinfo2() reports exactly the heap in use.
Program::Words ServiceTest::listeningHostCommand(const Words& types) {
    const Words plainHeap{"env", "MALLOC_ARENA_MAX=1",
                          "GLIBC_TUNABLES=glibc.malloc.tcache_count=0"};
    return joined(joined(plainHeap, programOf(emulator(), LISTENING_HOST_PROGRAM)),
                  joined({phone().folder(), kReadyFd}, types));
}

Program::Words ServiceTest::attackerCommand(const std::string& kind) {
    return joined(programOf(emulator(), ATTACKER_PROGRAM), {phone().folder(), kind});
}

ServiceTest::Result ServiceTest::run(const Words& command, const std::string& input) {
    Program program(command, input);
    const int code = program.wait();
    return {code, program.output(), program.errors()};
}

void ServiceTest::fails(const Words& command, int code, const std::string& why) {
    const Result result = run(command);
    EXPECT_EQ(result.code, code) << result.errors;
    EXPECT_THAT(result.errors, testing::HasSubstr(why));
    EXPECT_THAT(result.errors, testing::MatchesRegex("pelto[a-z-]*: [^\n]+\n"));
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

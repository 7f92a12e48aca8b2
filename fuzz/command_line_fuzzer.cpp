// Reads command lines as the phone's shell does, on a phone with links that lead out of it. No
// program is started; those of the workstation would get nothing outside the phone's files.
#include "fuzz/confinement.h"
#include "fuzz/hostile_phone.h"
#include "sim/base/root.h"
#include "sim/shell/command_line.h"

namespace {

void checkLine(const sim::CommandLine& line) {
    for (const std::string& word : line.words) {
        require(!word.empty() && word.find_first_of(" \t\n|;&$`<>\"'") == word.npos,
                "a word is plain");
    }
    sim::Root::Place place;
    if (line.outputPath.empty() || fuzzPhone().root().resolve(line.outputPath, place) != 0) return;
    require(place.name != ".." && place.name.find('/') == place.name.npos, "one component is left");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    static const HostilePhone& phone = *new HostilePhone;
    const sim::Root& root = fuzzPhone().root();
    sim::CommandLine line;
    if (!line.parse(phone.textOf(data, size)).empty()) return 0;
    checkLine(line);
    line.expand(root);
    if (!sim::isWorkstationProgram(line.program)) return 0;
    sim::WorkstationCommand command;
    std::string why;
    if (workstationArguments(root, line.program, line.words, command, why)) {
        Confinement(phone.fs(), command).check();
    } else {
        require(!why.empty(), "a refusal says why");
    }
    return 0;
}

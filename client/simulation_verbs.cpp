// Verbs that act as the kernel and as the processes around the service, or make them misbehave.
#include <sim/base/root.h>
#include <sim/kernel/kernel_log.h>
#include <sim/userspace/tombstones.h>
#include <stdio.h>

#include <CLI/CLI.hpp>
#include <memory>

#include "client/verbs.h"

namespace pelto {
namespace {

constexpr char kCommands[] =
    "Commands:\n"
    "  fault program NAME fail STATUS|hang|run   how a program of the phone's shell ends\n"
    "  fault disk full|free                      whether files can grow\n"
    "  fault reports refuse|take                 whether exception reports are taken\n"
    "  gpu vanish [--after BYTES]                the snapshot device goes; with the option: -- gpu "
    "vanish ...\n"
    "  gpu appear                                and comes back as on a fresh phone\n"
    "  gpu unreadable FILE                       one of its files cannot be opened\n"
    "  gpu short-reads BYTES                     what a read of the snapshot gives at most\n"
    "  audio-raw HEX                             these bytes as a netlink datagram\n"
    "  audio-answer family|none|nothing          how the look-up of the family is answered\n"
    "  audio-received                            what the service sent, a datagram a line\n";

void printAll(const std::vector<std::string>& texts) {
    for (const std::string& text : texts) puts(escaped(text).c_str());
}

struct Packet {
    std::string kind;
    std::string text;
};

void addAudio(CLI::App& kernel, Client& client) {
    auto packet = std::make_shared<Packet>();
    CLI::App* verb = kernel.add_subcommand("audio", "The audio module sends a packet");
    verb->add_option("CMD", packet->kind, "0: state of the microphone, 1: its status")
        ->required()
        ->check(CLI::Range(INT32_MIN, INT32_MAX));
    verb->add_option("TEXT", packet->text, "Its text, such as 257")->required();
    client.onVerb(
        verb, serviceExits(kNotCarriedOut, "does not listen to the module within 10 s"),
        [&client, packet] {
            client.ask({"audio-await"});  // a service that has just started may not listen yet
            client.ask({"audio", packet->kind, packet->text});
            return kDone;
        });
}

void addDisplay(CLI::App& kernel, Client& client) {
    auto record = std::make_shared<Packet>();
    CLI::App* verb = kernel.add_subcommand("display", "The display driver sends a record");
    verb->add_option("ID", record->kind, "Number of the event")
        ->required()
        ->check(CLI::Range(INT32_MIN, INT32_MAX));
    verb->add_option("PAYLOAD", record->text, "Its text, such as 'fps@@30$$scene@@game'")
        ->required();
    client.onVerb(verb, serviceExits(kNotCarriedOut), [&client, record] {
        client.ask({"display", record->kind, record->text});
        return kDone;
    });
}

int crash(Client& client, const sim::Crash& crash) {
    const std::string path = sim::writeTombstone(client.phone().root(), crash);
    if (path.empty()) throw Failure(kFailed, "crash: no tombstone could be written");
    puts(path.c_str());
    return kDone;
}

void addKernelLog(CLI::App& kernel, Client& client) {
    auto line = std::make_shared<std::string>();
    CLI::App* verb = kernel.add_subcommand("log", "Add a line to the kernel's messages");
    verb->add_option("TEXT", *line, "The line")->required();
    client.onVerb(verb, phoneExits("the line could not be written"), [&client, line] {
        if (client.phone().kernelLog().append(*line)) return kDone;
        throw Failure(kFailed, std::string("kernel log: not written: ") + strerror(errno));
    });
}

void addCrash(CLI::App& app, Client& client) {
    auto dead = std::make_shared<sim::Crash>();
    dead->pid = 1;
    CLI::App* verb = app.add_subcommand("crash", "Have a process die: its tombstone is written");
    verb->add_option("PROCESS", dead->process, "Its name, such as audioserver")->required();
    verb->add_option("REASON", dead->reason, "What it says as it aborts");
    client.onVerb(verb, phoneExits("no tombstone could be written"),
                  [&client, dead] { return crash(client, *dead); });
}

}  // namespace

void addKernelVerbs(CLI::App& app, Client& client) {
    CLI::App* kernel = app.add_subcommand("kernel", "Have the phone's kernel report something");
    Client::needsVerb(kernel);
    addAudio(*kernel, client);
    addDisplay(*kernel, client);
    addKernelLog(*kernel, client);

    addCrash(app, client);
    CLI::App* compositor = app.add_subcommand(
        "compositor", "Show the notices the display compositor has had, \"ID INFO\" a line");
    client.onVerb(compositor, serviceExits(kNotCarriedOut), [&client] {
        printAll(client.ask({"compositor"}));
        return kDone;
    });
}

void addControlVerb(CLI::App& app, Client& client) {
    auto words = std::make_shared<std::vector<std::string>>();
    CLI::App* verb = app.add_subcommand("control", "Make an end of the phone misbehave");
    verb->footer(kCommands);
    verb->add_option("COMMAND", *words, "Its words")->required();
    client.onVerb(verb, serviceExits(kNotCarriedOut, "what the command waits for does not come"),
                  [&client, words] {
                      printAll(client.ask(*words));
                      return kDone;
                  });
}

}  // namespace pelto

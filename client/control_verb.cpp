#include <stdio.h>

#include <CLI/CLI.hpp>
#include <memory>

#include "client/client.h"
#include "client/control.h"
#include "client/text.h"
#include "client/verbs.h"

namespace pelto {
namespace {

constexpr char kCommands[] =
    "Commands:\n"
    "  fault program NAME fail STATUS|hang|run   how a program of the phone's shell ends\n"
    "  fault disk full|free                      whether files can grow\n"
    "  fault reports refuse|take                 whether exception reports are taken\n"
    "  gpu vanish [-- --after BYTES]             the snapshot device goes\n"
    "  gpu appear                                and comes back as on a fresh phone\n"
    "  gpu unreadable FILE                       one of its files cannot be opened\n"
    "  gpu short-reads BYTES                     what a read of the snapshot gives at most\n"
    "  audio-raw HEX                             these bytes as a netlink datagram\n"
    "  audio-answer family|none|nothing          how the look-up of the family is answered\n"
    "  audio-received                            what the service sent, a datagram a line\n";

}  // namespace

void addControlVerb(CLI::App& app, Client& client) {
    auto words = std::make_shared<std::vector<std::string>>();
    CLI::App* verb = app.add_subcommand("control", "Make an end of the phone misbehave");
    verb->footer(kCommands);
    verb->add_option("COMMAND", *words, "Its words")->required();
    client.onVerb(verb, [&client, words] {
        for (const std::string& text : askPhone(client, *words)) puts(printable(text).c_str());
        return kDone;
    });
}

}  // namespace pelto

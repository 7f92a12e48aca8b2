#include <sim/userspace/log.h>
#include <sim/userspace/properties.h>
#include <sim/userspace/services.h>
#include <stdio.h>

#include <CLI/CLI.hpp>
#include <memory>

#include "client/verbs.h"

namespace pelto {
namespace {

int getProperty(Client& client, const std::string& key) {
    sim::Properties& properties = client.phone().properties();
    if (!key.empty()) {
        puts(escaped(properties.get(key).value_or("")).c_str());
        return kDone;
    }
    for (const auto& [name, value] : properties.all()) {
        printf("[%s]: [%s]\n", name.c_str(), escaped(value).c_str());
    }
    return kDone;
}

int setProperty(Client& client, const std::string& key, const std::string& value) {
    sim::Phone& phone = client.phone();
    // The reason of a failure is only written to the phone's log.
    std::string why;
    phone.log().observe([&why](const sim::Log::Record& record) {
        if (record.priority >= sim::kError) why = std::string(record.message);
    });
    const bool done = phone.properties().set(key, value);
    phone.services().awaitStopped();  // a service started by the property runs in this process
    phone.log().observe(nullptr);
    if (done && why.empty()) return kDone;
    throw Failure(kFailed, "setprop: " + (why.empty() ? "refused" : escaped(why)));
}

struct Property {
    std::string key;
    std::string value;
};

}  // namespace

void addPropertyVerbs(CLI::App& app, Client& client) {
    auto asked = std::make_shared<Property>();
    CLI::App* get = app.add_subcommand("getprop", "Show a property of the phone, or all of them");
    get->add_option("KEY", asked->key, "Its name; one that is not set is shown as an empty line");
    client.onVerb(get, phoneExits(kUnwritten),
                  [&client, asked] { return getProperty(client, asked->key); });

    auto given = std::make_shared<Property>();
    CLI::App* set = app.add_subcommand("setprop", "Set a property of the phone");
    set->add_option("KEY", given->key, "Its name")->required();
    set->add_option("VALUE", given->value, "At most 91 bytes")->required();
    client.onVerb(set, phoneExits("the property was refused, or what it starts failed"),
                  [&client, given] { return setProperty(client, given->key, given->value); });
}

}  // namespace pelto

#pragma once

namespace CLI {
class App;
}

namespace pelto {

class Client;

// Each adds a group of verbs to the application; pelto.cpp calls them in the order in which --help
// lists them. A verb's options live as long as the process.
void addPhoneVerbs(CLI::App& app, Client& client);
void addServiceVerbs(CLI::App& app, Client& client);
void addWatchVerb(CLI::App& app, Client& client);
void addLogcatVerb(CLI::App& app, Client& client);
void addPropertyVerbs(CLI::App& app, Client& client);

}  // namespace pelto

#pragma once

#include "client/verb_support.h"

namespace pelto {

// Each adds a group of verbs. pelto.cpp calls them in the order in which --help lists them. The
// variables that a verb's options are parsed into live as long as the process.
void addPhoneVerbs(CLI::App& app, Client& client);
void addServiceVerbs(CLI::App& app, Client& client);
void addWatchVerb(CLI::App& app, Client& client);
void addLogcatVerb(CLI::App& app, Client& client);
void addPropertyVerbs(CLI::App& app, Client& client);
void addCaptureVerbs(CLI::App& app, Client& client);
void addReportVerb(CLI::App& app, Client& client);
void addArchiveVerbs(CLI::App& app, Client& client);
void addStateVerbs(CLI::App& app, Client& client);
void addKernelVerbs(CLI::App& app, Client& client);
void addGpuVerbs(CLI::App& app, Client& client);
void addControlVerb(CLI::App& app, Client& client);

}  // namespace pelto

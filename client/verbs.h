#pragma once

#include "client/verb_support.h"

namespace pelto {

// Each adds the verbs named behind it. pelto.cpp calls them in the order in which --help lists
// them. The variables that a verb's options are parsed into live as long as the process.
void addPhoneVerbs(CLI::App& app, Client& client);     // phone
void addServiceVerbs(CLI::App& app, Client& client);   // send, debug
void addWatchVerb(CLI::App& app, Client& client);      // watch
void addLogcatVerb(CLI::App& app, Client& client);     // logcat
void addPropertyVerbs(CLI::App& app, Client& client);  // getprop, setprop
void addCaptureVerbs(CLI::App& app, Client& client);   // capture, audio-dump, dump-dmesg
void addReportVerb(CLI::App& app, Client& client);     // reports
void addArchiveVerbs(CLI::App& app, Client& client);   // archives
void addStateVerbs(CLI::App& app, Client& client);     // stutter, sf-state, top-activity
void addKernelVerbs(CLI::App& app, Client& client);    // kernel, crash, compositor
void addGpuVerbs(CLI::App& app, Client& client);       // gpu, clock, stats
void addControlVerb(CLI::App& app, Client& client);    // control

}  // namespace pelto

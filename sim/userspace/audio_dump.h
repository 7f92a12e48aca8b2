#pragma once

#include <string>
#include <string_view>

namespace sim {

class Log;
class Properties;
class Root;
class Services;

// The dump of one of the phone's audio services ("media.audio_flinger", "media.audio_policy",
// "audio"); empty for another name.
std::string audioDump(std::string_view service);

// Registers init's service "audiodumpinfo". Each run writes the three dumps, headed by the type in
// "kelvo.audio.dumpinfo.type", to a new file in the audio dump directory; when it cannot, it leaves
// a log line and no file.
void addAudioDumpService(Services& services, const Root& root, Properties& properties, Log& log);

}  // namespace sim

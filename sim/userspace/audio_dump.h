#pragma once

#include <string>
#include <string_view>

namespace sim {

class Phone;

// What one of the phone's audio services ("media.audio_flinger", "media.audio_policy", "audio")
// says of itself; empty for a name that is none.
std::string audioDump(std::string_view service);

// Registers init's service "audiodumpinfo". Started, it writes what all three say, headed by the
// type in "kelvo.audio.dumpinfo.type", to a file of its own in the audio dump directory, or leaves
// none and a log line.
void addAudioDumpService(Phone& phone);

}  // namespace sim

#pragma once

namespace sim {
class Phone;
}

// Ends this process with kHostNoPhone, after one line on stderr, as soon as the phone's folder is
// deleted, or moved with or without the directories above it. Returns at once; a thread of its own
// ("folder_watch") sleeps until then.
// Errors: one log line when the workstation cannot watch the folder.
void endWithFolderOf(const sim::Phone& phone);

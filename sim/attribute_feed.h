#pragma once

#include <memory>

#include "sim/attributes.h"
#include "sim/fd.h"

namespace sim {

// What a plain reader of an attribute is still to be given: the rest of the text, through a socket
// that keeps the bounds of each read.
struct AttributeFeed {
    std::shared_ptr<const Fd> socket;
    Attributes::Content text;
    Attributes::Faults faults;
    size_t sent = 0;
};

// Gives what the socket takes at once, and the rest on a thread of its own ("sim_attribute"), which
// ends with the text or the reader. False when there is no such thread to be had.
bool startFeed(AttributeFeed feed);

}  // namespace sim

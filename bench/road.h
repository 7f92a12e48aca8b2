#pragma once

#include "bench/measure.h"

namespace bench {

struct RoadOptions {
    size_t events = 5000;
    unsigned gapMicros = 200;  // between two events; 0: as fast as possible
};

// Each runs in a process of its own, with the phone open.
using RoadWorkload = Figures (*)(const RoadOptions& options);

Figures startUp(const RoadOptions& options);      // the service's constructor, and its threads
Figures dispatch(const RoadOptions& options);     // the dispatcher's setEvent() to a listener
Figures client(const RoadOptions& options);       // another process's setEvent() to a listener
Figures socketFloor(const RoadOptions& options);  // the same bytes between threads over a socket

// The sending process of client(); returns 0 when every event was accepted.
int sendEvents(const RoadOptions& options);

}  // namespace bench

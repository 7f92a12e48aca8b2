#pragma once

#include "bench/measure.h"

// The workloads of service_bench: the service's start-up, and an event's way to a listener or a
// part of it.
namespace bench {

struct ServiceOptions {
    size_t events = 5000;
    unsigned gapMicros = 200;  // between two events; 0: as fast as possible
    bool stops = false;        // sendEvents() stops its process once it is connected
};

// Each runs in a process of its own, with the phone open.
using ServiceWorkload = Figures (*)(const ServiceOptions& options);

Figures startUp(const ServiceOptions& options);      // the service's constructor, and its threads
Figures dispatch(const ServiceOptions& options);     // the dispatcher's setEvent() to a listener
Figures client(const ServiceOptions& options);       // another process's setEvent() to a listener
Figures attacked(const ServiceOptions& options);     // client() with misusing clients beside it
Figures socketFloor(const ServiceOptions& options);  // the same bytes between threads over a socket

// The sending process of client(); returns 0 when every event was accepted.
int sendEvents(const ServiceOptions& options);

}  // namespace bench

#pragma once

#include <sys/types.h>

#include "bench/measure.h"

// The workloads of service_bench: the service's start-up, and an event's way to a listener or a
// part of it.
namespace bench {

struct ServiceOptions {
    size_t events = 5000;
    unsigned gapMicros = 200;  // between two events; 0: as fast as possible
    bool stops = false;        // sendEvents() stops its process once it is connected
    bool pairs = false;        // sendEvents() sends the event of road()
};

// The event of road(): its information has four pairs.
constexpr char kPairsType[] = "my_event";
constexpr char kPairsInfo[] = "value0:7,value1:8,string0:hello,string1:phone";

// Each runs in a process of its own, with the phone open.
using ServiceWorkload = Figures (*)(const ServiceOptions& options);

Figures startUp(const ServiceOptions& options);      // the service's constructor, and its threads
Figures dispatch(const ServiceOptions& options);     // the dispatcher's setEvent() to a listener
Figures client(const ServiceOptions& options);       // another process's setEvent() to a listener
Figures attacked(const ServiceOptions& options);     // client() with misusing clients beside it
Figures socketFloor(const ServiceOptions& options);  // the same bytes between threads over a socket
// The cost of an event with four pairs in the service's process, from its own setEvent() and from
// that of another process.
Figures road(const ServiceOptions& options);
Figures clientRoad(const ServiceOptions& options);

// The sending process of client(); returns 0 when every event was accepted.
int sendEvents(const ServiceOptions& options);
// Publishes a service and starts a process that sends events to it; the process is connected and
// stopped.
pid_t startStoppedClient(const ServiceOptions& options);

}  // namespace bench

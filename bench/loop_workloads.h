#pragma once

#include "bench/measure.h"
#include "bench/peer.h"

namespace bench {

// The parameters of a workload; each workload uses some of them.
struct Options {
    MakePeer make = nullptr;
    size_t messages = 200000;
    int producers = 1;
    bool readWhole = false;  // the handler reads every byte, not `what` alone
};

using Workload = Figures (*)(const Options& options);

Figures flatOut(const Options& options);       // producers post as fast as they can
Figures bounded(const Options& options);       // the same with at most 256 not yet received
Figures wakeLatency(const Options& options);   // an idle loop, one message at a time
Figures drain(const Options& options);         // all messages wait before the loop starts
Figures delayed(const Options& options);       // posted with random delays
Figures insertBursts(const Options& options);  // bursts of delayed messages into an empty queue
Figures insertAmong(const Options& options);   // a thousand more while `messages` wait
Figures selfPost(const Options& options);      // each message posts the next

}  // namespace bench

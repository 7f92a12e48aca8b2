#pragma once

#include "bench/measure.h"
#include "bench/peer.h"

namespace bench {

// How a workload is run; what a workload does not use it leaves alone.
struct Options {
    MakePeer make = nullptr;
    size_t messages = 200000;
    int producers = 1;
    bool readWhole = false;  // the handler reads every byte, not the code alone
};

using Workload = Figures (*)(const Options& options);

Figures flatOut(const Options& options);      // producers post as fast as they can
Figures bounded(const Options& options);      // 256 outstanding at most
Figures wakeLatency(const Options& options);  // an idle loop, one message at a time
Figures drain(const Options& options);        // everything waits before the loop begins
Figures delayed(const Options& options);      // inserted at random times, then delivered
Figures selfPost(const Options& options);     // each message posts the next

}  // namespace bench

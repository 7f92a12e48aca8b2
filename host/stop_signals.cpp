#include "host/stop_signals.h"

#include <unistd.h>

#include <thread>

StopSignals::StopSignals() {
    sigemptyset(&mSignals);
    sigaddset(&mSignals, SIGTERM);
    sigaddset(&mSignals, SIGINT);
    pthread_sigmask(SIG_BLOCK, &mSignals, nullptr);
}

void StopSignals::onFirst(std::function<void()> stop) {
    std::thread([signals = mSignals, stop = std::move(stop)] {
        int number = 0;
        sigwait(&signals, &number);
        stop();
        sigwait(&signals, &number);
        _exit(1);
    }).detach();
}

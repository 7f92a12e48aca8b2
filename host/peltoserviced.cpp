// The host process of the service.
#include <stdio.h>
#include <unistd.h>

#include "host/host_options.h"
#include "host/service_host.h"
#include "host/stop_signals.h"

int main(int argc, char** argv) {
    HostOptions options;
    int code = parseHostOptions(argc, argv, &options);
    if (code < 0) {
        signal(SIGPIPE, SIG_IGN);  // a reader of --ready-fd that has gone is no reason to end
        StopSignals signals;
        code = openPhone(options) ? runServiceHost(options, signals) : kHostNoPhone;
    }
    fflush(nullptr);
    // The service's threads still run: nothing is destroyed under their feet.
    _exit(code);
}

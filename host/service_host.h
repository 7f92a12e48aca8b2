#pragma once

#include "host/host_options.h"
#include "host/stop_signals.h"

// Constructs the service, publishes it on the open phone and executes calls until a signal asks to
// stop; then its name is withdrawn, running calls finish, and this returns an exit code. Failures
// are one line on stderr. What a component throws at start-up is not caught.
//
// The caller ends the process by _exit(): a service that ran is never destroyed.
int runServiceHost(const HostOptions& options, StopSignals& signals);

// Opens the phone; false after one line on stderr.
bool openPhone(const HostOptions& options);

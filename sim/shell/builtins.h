#pragma once

namespace sim {

class KernelLog;
class Log;
class Root;
class Shell;

// Registers the phone's own programs with its shell, as built-ins: logcat, dmesg, dumpsys and
// perfetto.
void addBuiltins(Shell& shell, const Root& root, Log& log, KernelLog& kernelLog);

}  // namespace sim

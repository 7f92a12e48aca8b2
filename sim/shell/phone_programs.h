#pragma once

namespace sim {

class KernelLog;
class Log;
class Root;
class Shell;

// Registers the phone's own programs with its shell: logcat, dmesg, dumpsys and
// perfetto.
void addPhonePrograms(Shell& shell, const Root& root, Log& log, KernelLog& kernelLog);

}  // namespace sim

#pragma once

#include <string>

#include "sim/kernel/attributes.h"

namespace sim {

class Control;

// The phone's graphics driver: its four snapshot files, and the faults it tells of. On a fresh
// phone there has been no fault: the timestamp is "0" and dumps are allowed.
// Tells of every fault, whether or not the dump of the one before was read.
// Threads: any.
class Gpu {
  public:
    static constexpr char kTimestamp[] = "/sys/class/kgsl/kgsl-3d0/snapshot/timestamp";
    static constexpr char kControl[] = "/sys/class/kgsl/kgsl-3d0/snapshot/snapshot_control";
    static constexpr char kHashId[] = "/sys/class/kgsl/kgsl-3d0/snapshot/snapshot_hashid";
    static constexpr char kDump[] = "/sys/class/kgsl/kgsl-3d0/snapshot/dump";

    // What the four files say of a fault, each byte as given.
    struct Fault {
        std::string timestamp = "1\n";
        std::string hashId;
        std::string control = "0\n";
        std::string snapshot;
    };

    // `attributes` outlives this.
    explicit Gpu(Attributes& attributes);

    // Replaces the files' texts and notifies. A device that had vanished is back.
    void fault(const Fault& fault);
    // Changes whether a dump may be taken, without a notification.
    void setControl(const std::string& control);
    // All files go, or come back as on a fresh phone and misbehave no more.
    void vanish();
    void appear();
    // One of the files cannot be opened; each read of the dump gives at most so many bytes.
    void makeUnreadable(const std::string& path);
    void shortenReads(size_t bytes);
    // The device vanishes when a reader has had so many bytes of a snapshot.
    void vanishAfter(size_t bytes);

    // Whether the driver's reader waits for the next fault.
    bool hasReader();

    // A snapshot of that size whose bytes depend on their place alone.
    static std::string snapshotOf(size_t size);

  private:
    Attributes& mAttributes;
};

// The command "gpu" of the phone's control socket:
//   fault [--hash H] [--timestamp T] [--size BYTES] [--control C]
//   control C                      what snapshot_control holds from now on
//   vanish [--after BYTES]
//   appear
//   unreadable timestamp|snapshot_control|snapshot_hashid|dump
//   short-reads BYTES
//   await-reader                   until hasReader(); an error after 60 s of real time
void addGpuCommand(Control& control, Gpu& gpu);

}  // namespace sim

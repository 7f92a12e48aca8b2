#pragma once

#include <string>

#include "sim/kernel/sysfs_attributes.h"

namespace sim {

// The phone's graphics driver: its four snapshot files and its faults. On a fresh phone there has
// been no fault: the timestamp is "0" and dumps are allowed. Every fault is notified, even when the
// dump of the last one has not been read.
// Threads: any.
class Gpu {
  public:
    static constexpr char kTimestamp[] = "/sys/class/kgsl/kgsl-3d0/snapshot/timestamp";
    static constexpr char kControl[] = "/sys/class/kgsl/kgsl-3d0/snapshot/snapshot_control";
    static constexpr char kHashId[] = "/sys/class/kgsl/kgsl-3d0/snapshot/snapshot_hashid";
    static constexpr char kDump[] = "/sys/class/kgsl/kgsl-3d0/snapshot/dump";

    // A fault: the texts of the four files, byte for byte.
    struct Fault {
        std::string timestamp = "1\n";
        std::string hashId;
        std::string control = "0\n";
        std::string snapshot;
    };

    // `attributes` must outlive this object.
    explicit Gpu(Attributes& attributes);

    // Replaces the files' texts and notifies. A device that had vanished is back.
    void fault(const Fault& fault);
    // Changes whether a dump may be taken, without a notification.
    void setControl(const std::string& control);
    // Remove all files, and make them as on a fresh phone, with no injected fault.
    void vanish();
    void appear();
    // Inject faults: opening that file fails; a read of the dump gives at most `bytes`; the device
    // vanishes when a reader has got `bytes` of a snapshot.
    void makeUnreadable(const std::string& path);
    void shortenReads(size_t bytes);
    void vanishAfter(size_t bytes);

    // Whether a reader waits for the next fault.
    bool hasReader();

    // A snapshot of that size; each byte depends on its position alone.
    static std::string snapshotOf(size_t size);

  private:
    Attributes& mAttributes;
};

}  // namespace sim

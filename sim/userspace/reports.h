#pragma once

#include <stdint.h>

#include <atomic>
#include <string>
#include <string_view>
#include <vector>

#include "sim/base/fd.h"
#include "sim/base/mutex.h"

namespace sim {

// An exception report as the reporting library was given it.
struct Report {
    uint64_t number = 0;  // counts up from 1 on a phone
    std::string record;   // the Reports::kRecordBytes bytes, untouched
    int64_t time = 0;     // seconds since the epoch
    uint32_t id = 0;
    uint64_t logs = 0;  // mask
    std::string name;

    // What the mask asks for: "android log", "kernel log", ...; what has no name is given as its
    // bits, "0x4".
    std::vector<std::string> logNames() const;
    // One line: number, local time, id, name and logs; control characters become "?".
    std::string text() const;
};

// The exception reports that a phone's reporting library has accepted: run/reports, one file a
// record, byte for byte. The latest kKept stay.
//
// Threads: any; several processes may add and read at once. Errors: a record that cannot be
// written whole leaves nothing; a file that is no record is passed over.
class Reports {
  public:
    static constexpr size_t kRecordBytes = 288;
    static constexpr size_t kKept = 1000;

    // Makes the directory where it is missing; throws std::runtime_error when that fails.
    explicit Reports(std::string directory);

    // The number it got, or 0 when it was refused or could not be kept.
    uint64_t add(std::string_view record) SIM_EXCLUDES(mMutex);
    // Those with a number above `number`, oldest first.
    std::vector<Report> after(uint64_t number) const;

    // A descriptor that polls readable when a report has come since it was last read empty. Take it
    // before the first after(), so that none is missed.
    Fd watch() const;

    // While set, this process's library takes no report.
    void refuse(bool refused) { mRefused.store(refused); }

  private:
    // Numbers of the files there, ascending.
    std::vector<uint64_t> numbers() const;
    bool write(uint64_t number, std::string_view record) const;
    std::string path(uint64_t number) const;

    const std::string mDirectory;
    Mutex mMutex;
    Fd mLock;  // of the directory, against other processes
    std::atomic<bool> mRefused{false};
};

}  // namespace sim

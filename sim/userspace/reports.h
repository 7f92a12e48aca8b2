#pragma once

#include <stdint.h>

#include <atomic>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "sim/base/fd.h"

namespace sim {

// An exception report, as passed to the reporting library.
struct Report {
    uint64_t number = 0;  // counts up from 1 on a phone
    std::string record;   // the Reports::kRecordBytes bytes, untouched
    int64_t time = 0;     // seconds since the epoch
    uint32_t id = 0;
    uint64_t logs = 0;  // a bit for each log to attach
    std::string name;

    // The names of the mask's logs: "android log", "kernel log", ...; bits without a name in hex,
    // "0x4".
    std::vector<std::string> logNames() const;
    // One line: number, local time, id, name and logs; control characters become "?".
    std::string text() const;
};

// The exception reports that the phone's reporting library has accepted: run/reports, one file a
// record, byte for byte. The latest kMaxKept are kept.
//
// Threads: any; several processes may add and read at once. Errors: a record that cannot be
// written whole, or not within a second while another process holds the directory's lock, leaves no
// file; files that are not records are skipped.
class Reports {
  public:
    static constexpr size_t kRecordBytes = 288;
    static constexpr size_t kMaxKept = 1000;

    // `directory` exists.
    explicit Reports(std::string directory) : mDirectory(std::move(directory)) {}

    // The record's number, or 0 when it was refused or could not be written.
    uint64_t add(std::string_view record);
    // The reports with a number above `number`, oldest first.
    std::vector<Report> after(uint64_t number) const;

    // Removes the half-written record of a process that was killed.
    void clearLeftovers();

    // A descriptor that is readable once a report has been added since it was last read. To miss
    // none, call this before the first after().
    Fd watch() const;

    // While `refused`, add() takes no report in this process.
    void refuse(bool refused) { mRefused.store(refused); }

  private:
    // The numbers of the reports on disk, ascending.
    std::vector<uint64_t> numbers() const;
    bool write(uint64_t number, std::string_view record) const;
    std::string path(uint64_t number) const;
    // The file that a record is written to before it is given its number.
    std::string freshPath() const { return mDirectory + "/.new"; }

    const std::string mDirectory;
    std::atomic<bool> mRefused{false};
};

}  // namespace sim

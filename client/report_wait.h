#pragma once

#include <sim/userspace/reports.h>

#include <functional>

#include "client/wait_options.h"

namespace pelto {

// Waits for exception reports of a phone, oldest first. No report that is added after its
// construction is missed.
class ReportWait {
  public:
    // Decides whether a report ends the wait.
    using Visit = std::function<bool(const sim::Report&)>;

    // Begins with the first report whose number is above `last`.
    ReportWait(sim::Phone& phone, uint64_t last);

    // Visits the reports that are there; true once a visit has ended the wait.
    bool next(const Visit& visit);
    // Visits those to come, too; false at the deadline. Flushes stdout before it sleeps. Throws
    // Failure when the phone's folder has gone.
    bool await(const Visit& visit, const Deadline& deadline);

  private:
    sim::Phone& mPhone;
    const sim::Fd mChanges;
    uint64_t mLast;
};

}  // namespace pelto

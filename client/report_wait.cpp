#include "client/report_wait.h"

#include <sim/phone.h>
#include <stdio.h>

namespace pelto {

ReportWait::ReportWait(sim::Phone& phone, uint64_t last)
    : mPhone(phone), mChanges(phone.reports().watch()), mLast(last) {}

bool ReportWait::next(const Visit& visit) {
    for (const sim::Report& report : mPhone.reports().after(mLast)) {
        mLast = report.number;
        if (visit(report)) return true;
    }
    return false;
}

bool ReportWait::await(const Visit& visit, const Deadline& deadline) {
    while (!next(visit)) {
        fflush(stdout);
        if (!mChanges.valid()) throw Failure(kFailed, "reports: cannot be followed here");
        if (deadline.passed()) return false;
        if (!sim::awaitChange(mChanges, mPhone.runDir() + "/reports", deadline.leftMillis()) &&
            !deadline.passed())
            throw Failure(kNoPhone, "reports: the phone's folder has gone");
    }
    return true;
}

}  // namespace pelto

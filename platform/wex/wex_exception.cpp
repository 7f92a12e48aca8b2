#include "wex/wex_exception.h"

#include <string_view>

#include "sim/phone.h"
#include "sim/userspace/log.h"
#include "sim/userspace/reports.h"

static_assert(sizeof(wex_exception_info) == sim::Reports::kRecordBytes);

int wex_raise_exception(const wex_exception_info* info) {
    if (info == nullptr) return -1;
    const std::string_view record(reinterpret_cast<const char*>(info), sizeof(*info));
    sim::Phone& phone = sim::Phone::get();
    const uint64_t number = phone.reports().add(record);
    if (number == 0) {
        phone.log().write(sim::kError, "wex", "exception report not taken");
        return -1;
    }
    phone.log().write(sim::kInfo, "wex", "exception report " + std::to_string(number) + " taken");
    return 0;
}

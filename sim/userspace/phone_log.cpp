#include "sim/userspace/phone_log.h"

#include "sim/phone.h"
#include "sim/userspace/log.h"

namespace sim {

void logAs(std::string_view part, Priority priority, std::string_view text) {
    if (Phone* phone = Phone::find()) phone->log().write(priority, part, text);
}

}  // namespace sim

#include "sim/phone_log.h"

#include "sim/log.h"
#include "sim/phone.h"

namespace sim {

void logAs(std::string_view part, Priority priority, std::string_view text) {
    if (Phone* phone = Phone::find()) phone->log().write(priority, part, text);
}

}  // namespace sim

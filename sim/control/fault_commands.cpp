#include "sim/control/fault_commands.h"

#include <stdexcept>

#include "sim/base/root.h"
#include "sim/control/control.h"
#include "sim/phone.h"
#include "sim/shell/shell.h"
#include "sim/userspace/reports.h"

namespace sim {
namespace {

using Arguments = Control::Arguments;

constexpr char kUsage[] =
    "fault: takes program NAME fail STATUS|hang|run, disk full|free or reports refuse|take";

int statusOf(const std::string& text) {
    const bool digits = !text.empty() && text.size() <= 3 &&
                        text.find_first_not_of("0123456789") == std::string::npos;
    const int status = digits ? std::stoi(text) : 0;
    if (status < 1 || status > 255)
        throw std::runtime_error("fault: '" + text + "' is no status from 1 to 255");
    return status;
}

Reply run(Phone& phone, const Arguments& words) {
    const bool program = words.size() >= 3 && words[0] == "program";
    if (program && words.size() == 4 && words[2] == "fail") {
        phone.shell().fail(words[1], statusOf(words[3]));
    } else if (program && words.size() == 3 && words[2] == "hang") {
        phone.shell().hang(words[1]);
    } else if (program && words.size() == 3 && words[2] == "run") {
        phone.shell().fail(words[1], 0);
        phone.shell().release(words[1]);
    } else if (words == Arguments{"disk", "full"} || words == Arguments{"disk", "free"}) {
        phone.root().fillDisk(words[1] == "full");
    } else if (words == Arguments{"reports", "refuse"} || words == Arguments{"reports", "take"}) {
        phone.reports().refuse(words[1] == "refuse");
    } else {
        throw std::runtime_error(kUsage);
    }
    return {true, {}};
}

}  // namespace

void addFaultCommand(Phone& phone) {
    phone.control().add("fault", [&phone](const Arguments& words) { return run(phone, words); });
}

}  // namespace sim

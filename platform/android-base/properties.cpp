#include "android-base/properties.h"

#include <set>

#include "sim/phone.h"
#include "sim/properties.h"

namespace android {
namespace base {

std::string GetProperty(const std::string& key, const std::string& default_value) {
    const std::string value = sim::Phone::get().properties().get(key).value_or("");
    return value.empty() ? default_value : value;
}

bool GetBoolProperty(const std::string& key, bool default_value) {
    static const auto& yes = *new std::set<std::string>{"1", "y", "yes", "on", "true"};
    static const auto& no = *new std::set<std::string>{"0", "n", "no", "off", "false"};
    const std::string value = GetProperty(key, "");
    if (yes.count(value) != 0) return true;
    return no.count(value) != 0 ? false : default_value;
}

bool SetProperty(const std::string& key, const std::string& value) {
    return sim::Phone::get().properties().set(key, value);
}

}  // namespace base
}  // namespace android

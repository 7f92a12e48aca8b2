// The phone's properties for C++ (android-base) and for C (cutils).
#include <android-base/properties.h>
#include <cutils/properties.h>
#include <sim/phone.h>
#include <sim/userspace/properties.h>
#include <string.h>

#include <set>

namespace {

std::string valueOf(const std::string& key) {
    return sim::Phone::get().properties().get(key).value_or("");
}

}  // namespace

namespace android {
namespace base {

bool GetBoolProperty(const std::string& key, bool default_value) {
    static const auto& yes = *new std::set<std::string>{"1", "y", "yes", "on", "true"};
    static const auto& no = *new std::set<std::string>{"0", "n", "no", "off", "false"};
    const std::string value = valueOf(key);
    if (yes.count(value) != 0) return true;
    return no.count(value) != 0 ? false : default_value;
}

bool SetProperty(const std::string& key, const std::string& value) {
    return sim::Phone::get().properties().set(key, value);
}

}  // namespace base
}  // namespace android

int property_get(const char* key, char* value, const char* default_value) {
    std::string text = valueOf(key);
    if (text.empty() && default_value != nullptr) text = default_value;
    text.resize(strnlen(text.c_str(), PROPERTY_VALUE_MAX - 1));
    memcpy(value, text.c_str(), text.size() + 1);
    return static_cast<int>(text.size());
}

int property_set(const char* key, const char* value) {
    return sim::Phone::get().properties().set(key, value == nullptr ? "" : value) ? 0 : -1;
}

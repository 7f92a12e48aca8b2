#pragma once

#include <string>

// The phone's properties, as the platform's base library offers them. Any thread.
namespace android {
namespace base {

// "1", "y", "yes", "on", "true" are true, "0", "n", "no", "off", "false" are false; anything else
// is the default.
bool GetBoolProperty(const std::string& key, bool default_value);

// False and a log line when the key or the value is refused.
bool SetProperty(const std::string& key, const std::string& value);

}  // namespace base
}  // namespace android

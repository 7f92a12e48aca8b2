#pragma once

#include <string>

namespace android {
namespace base {

bool GetBoolProperty(const std::string& key, bool defaultValue);
bool SetProperty(const std::string& key, const std::string& value);

}  // namespace base
}  // namespace android

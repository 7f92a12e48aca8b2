#include "cutils/properties.h"

#include <string.h>

#include <string>

#include "sim/phone.h"
#include "sim/properties.h"

int property_get(const char* key, char* value, const char* default_value) {
    std::string text = sim::Phone::get().properties().get(key).value_or("");
    if (text.empty() && default_value != nullptr) text = default_value;
    text.resize(strnlen(text.c_str(), PROPERTY_VALUE_MAX - 1));
    memcpy(value, text.c_str(), text.size() + 1);
    return static_cast<int>(text.size());
}

int property_set(const char* key, const char* value) {
    return sim::Phone::get().properties().set(key, value == nullptr ? "" : value) ? 0 : -1;
}

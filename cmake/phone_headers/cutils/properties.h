#pragma once

extern "C" {
int property_get(const char* key, char* value, const char* defaultValue);
int property_set(const char* key, const char* value);
}

#pragma once

// The phone's properties, as the C part of the platform offers them. Any thread.

#ifdef __cplusplus
extern "C" {
#endif

#define PROPERTY_VALUE_MAX 92  // bytes of a value with its terminator

// Fills `value`, which has PROPERTY_VALUE_MAX bytes, with the property, or with `default_value`
// (cut to fit; null leaves the text empty) when it is not set or empty. Returns the length.
int property_get(const char* key, char* value, const char* default_value);

// 0, or -1 and a log line when the key or the value is refused. A null value sets the empty text.
int property_set(const char* key, const char* value);

#ifdef __cplusplus
}
#endif

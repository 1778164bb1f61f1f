// libcutils.so: system properties, and the request to go down or to boot anew.
#pragma once

#ifdef __cplusplus
extern "C" {
#endif

#define PROPERTY_VALUE_MAX 92 // bytes, the terminating zero included

// Copies the property `key`, or `default_value` when it is not set (NULL: the empty text), zero-terminated
// into `value`, which holds at least PROPERTY_VALUE_MAX bytes. Returns the length of the value.
int property_get(const char *key, char *value, const char *default_value);

// Sets a property. Returns 0, or a negative value when the name or the value is refused, or when that of a
// "persist." property cannot be kept: it has its old value then.
int property_set(const char *key, const char *value);

#define ANDROID_RB_RESTART  0xDEAD0001u
#define ANDROID_RB_POWEROFF 0xDEAD0002u
#define ANDROID_RB_RESTART2 0xDEAD0003u // restart with a reason

// Asks init to restart or to power off. `flags` is 0; `reason` is read for ANDROID_RB_RESTART2 alone.
// Returns 0 once the request is made, or a negative value.
int android_reboot(unsigned int command, int flags, const char *reason);

#ifdef __cplusplus
}
#endif

// libhardware_legacy.so: wake locks. While one is held the phone does not suspend.
#pragma once

#ifdef __cplusplus
extern "C" {
#endif

#define PARTIAL_WAKE_LOCK 1 // the processor stays on, the screen may go off

// Both return a negative value on failure.
int acquire_wake_lock(int level, const char *name);
int release_wake_lock(const char *name);

#ifdef __cplusplus
}
#endif

// liblog.so: the phone's log.
#pragma once

#ifdef __cplusplus
extern "C" {
#endif

#define ANDROID_LOG_ERROR 6

// Writes one formatted entry. Returns a negative value when it was not written.
// NOLINTNEXTLINE(bugprone-reserved-identifier): the name is the phone's
int __android_log_print(int priority, const char *tag, const char *format, ...)
    __attribute__((format(printf, 3, 4)));

#ifdef __cplusplus
}
#endif

// A liblog.so that holds a lock while it writes, as a phone's may, and in whose midst a stop signal comes: a
// signal handler that logs would wait for itself. With it the handler of the signal REFUSED_SIGNAL cannot be
// installed.
#include <dlfcn.h>
#include <log.h>
#include <pthread.h>
#include <signal.h>
#include <stdarg.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

static pthread_mutex_t lock = PTHREAD_MUTEX_INITIALIZER;

int __android_log_print(int, const char *, const char *format, ...)
{
    char line[1024];
    va_list arguments;
    va_start(arguments, format);
    vsnprintf(line, sizeof line, format, arguments);
    va_end(arguments);
    pthread_mutex_lock(&lock);
    if (strstr(line, "Diag com_port ready"))
        raise(SIGTERM);
    pthread_mutex_unlock(&lock);
    return 1;
}

#ifndef UNDER_THREAD_SANITIZER // which stands in front of it itself
extern "C" int sigaction(int number, const struct sigaction *action, struct sigaction *before) noexcept
{
    static auto *const real = reinterpret_cast<decltype(&sigaction)>(dlsym(RTLD_NEXT, "sigaction"));
    const char *refused = getenv("REFUSED_SIGNAL");
    return refused && atoi(refused) == number ? -1 : real(number, action, before);
}
#endif

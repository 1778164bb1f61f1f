// A liblog.so that holds a lock while it writes, as a phone's may, and in whose midst a stop signal comes: a
// signal handler that logs would wait for itself.
#include <log.h>
#include <pthread.h>
#include <signal.h>
#include <stdarg.h>
#include <stdio.h>
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

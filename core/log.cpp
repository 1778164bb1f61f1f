#include "core/log.h"

#include <errno.h>
#include <log.h>
#include <stdarg.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/stat.h>
#include <unistd.h>

static constexpr char TAG[] = "Diag_Lib";
static constexpr size_t USUAL_LINE = 1024; // longer lines are formatted on the heap

static bool stdout_is_read = true;

void log_spare_null_stdout()
{
    struct stat out = {};
    struct stat null = {};
    // What cannot be looked at stays empty: it is no character device, or no device that there is.
    fstat(STDOUT_FILENO, &out);
    stat("/dev/null", &null);
    stdout_is_read = !S_ISCHR(out.st_mode) || out.st_rdev != null.st_rdev;
}

// Unbuffered, so that a line is out before its function goes on, whatever happens next.
static void write_stdout(const char *text, size_t length)
{
    while (length > 0) {
        ssize_t written = write(STDOUT_FILENO, text, length);
        if (written < 0 && errno == EINTR)
            continue;
        if (written <= 0)
            return; // nobody reads: the phone's log still gets the line
        text += written;
        length -= static_cast<size_t>(written);
    }
}

void diag_log(const char *function, const char *format, ...)
{
    int saved_errno = errno;
    char usual[USUAL_LINE];
    char *line = usual;

    size_t prefix = strlen(function) + strlen("[]:");
    va_list arguments;
    va_list again;
    va_start(arguments, format);
    va_copy(again, arguments);

    stpcpy(stpcpy(stpcpy(usual, "["), function), "]:");
    int message = vsnprintf(usual + prefix, sizeof usual - prefix, format, arguments);
    size_t length = prefix + static_cast<size_t>(message < 0 ? 0 : message);
    if (length >= sizeof usual) {
        char *whole = static_cast<char *>(malloc(length + 1));
        if (whole) {
            snprintf(whole, length + 1, "[%s]:", function);
            vsnprintf(whole + prefix, length + 1 - prefix, format, again);
            line = whole;
        } else {
            length = sizeof usual - 1;
            usual[length - 1] = '\n';
        }
    }
    va_end(again);
    va_end(arguments);

    if (stdout_is_read)
        write_stdout(line, length);
    __android_log_print(ANDROID_LOG_ERROR, TAG, "%s", line);
    if (line != usual)
        free(line);
    errno = saved_errno;
}

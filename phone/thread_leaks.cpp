// Thread sanitizer builds: the thread that powers the phone off is neither joined nor detached, for nothing
// is left to do that.
extern "C" const char *
__tsan_default_options() // NOLINT(bugprone-reserved-identifier): the runtime's name for it
{
    return "report_thread_leaks=0";
}

// Sanitizer builds: the property tools do without the leak checker, which looks for /proc/PID of its own
// process and finds only that of services there. So does the launcher's end for shells and logs: it stops its
// process to look, and the SIGCONT that `timeout` sends behind its signal undoes that, for which it would
// wait forever.
extern "C" const char *
__asan_default_options() // NOLINT(bugprone-reserved-identifier): the runtime's name for it
{
    return "detect_leaks=0";
}

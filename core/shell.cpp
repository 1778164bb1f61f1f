#include "core/shell.h"

#include <errno.h>
#include <pthread.h>
#include <signal.h>
#include <stdlib.h>
#include <string.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>

#include "core/log.h"

static constexpr char PATH_PREFIX[] =
    "export PATH=/sbin:/system/sbin:/system/bin:/system/xbin:/vendor/bin:/vendor/xbin; ";
static_assert(sizeof PATH_PREFIX - 1 == 82, "685 characters of a command fit behind the prefix");
static constexpr size_t COMMAND_SIZE = 768;
static constexpr char READ[] = "re"; // read; closed in later children

uint8_t diag_quiet_flag;

command_stream run_line(const char *line) { return command_stream(popen(line, READ)); }

static bool close_started(command_stream stream)
{
    const bool started = stream != nullptr;
    stream.reset(); // closing waits for the shell
    return started;
}

bool run_line_and_wait(const char *line) { return close_started(run_line(line)); }

static void *close_stream(void *stream)
{
    pclose(static_cast<FILE *>(stream));
    return nullptr;
}

void close_unawaited(command_stream stream)
{
    if (!stream)
        return;
    pthread_t closer;
    if (pthread_create(&closer, nullptr, close_stream, stream.get()) == 0) {
        pthread_detach(closer);
        (void)stream.release();
    }
}

FILE *my_popen(const char *command, const char *mode)
{
    char line[COMMAND_SIZE] = {};
    snprintf(line, sizeof line, "%s%s", PATH_PREFIX, command);
    if (diag_quiet_flag == 0)
        LOG("new popen command is: %s\n", line);
    return popen(line, mode);
}

command_stream run_command(const char *command) { return command_stream(my_popen(command, READ)); }

bool run_command_and_wait(const char *command) { return close_started(run_command(command)); }

bool diag_cmd_handle_system(const char *command)
{
    if (!command) {
        LOG("Cmd is NULL!\n");
        return false;
    }
    const bool started = run_command_and_wait(command);
    LOG("cmd:%s, status:%d\n", command, started ? 0 : -1);
    return started;
}

bool diag_cmd_compare_msg(const char *command, const char *expected)
{
    command_stream output = run_command(command);
    if (!output)
        return false;
    if (diag_quiet_flag == 0)
        LOG("popen %s success\n", command);
    char line[LINE_SIZE];
    while (read_line(output.get(), line)) {
        if (diag_quiet_flag == 0)
            LOG("cmd_msg: %s\n", line);
        if (strncmp(line, expected, strlen(expected)) == 0) {
            if (diag_quiet_flag == 0)
                LOG("find %s success\n", expected);
            return true;
        }
    }
    return false;
}

int diag_cmd_system_send(const char *command)
{
    if (!command) {
        LOG("Cmd is NULL!\n");
        return -1;
    }
    int status = system(command);
    if (status < 0) {
        LOG("cmd:%s, error:%s\n", command, strerror(errno));
        return status;
    }
    if (WIFEXITED(status)) {
        LOG("cmd:%s, normal termination, exit status:[%d]\n", command,
            0); // 0 whatever it is, as the line's readers know it
        return WEXITSTATUS(status);
    }
    if (WIFSTOPPED(status)) {
        LOG("cmd:%s,process stopped, signal num:[%d]\n", command, 0); // 0 again
        return WSTOPSIG(status);
    }
    LOG("cmd:%s,abnormal termination, signal num:[%d]\n", command, WTERMSIG(status));
    return WTERMSIG(status);
}

int diag_get_processpid_by_name(const char *name, int32_t (&ids)[PROCESS_LIMIT], uint8_t *count)
{
    char command[COMMAND_SIZE];
    snprintf(command, sizeof command, "ps -A| grep %s", name);
    LOG("process cmd=%s !\n", command);
    *count = 0;
    command_stream list = run_line(command);
    if (!list) {
        LOG("%s process doesn't exist!\n", name);
        return -1;
    }
    char line[LINE_SIZE];
    while (read_line(list.get(), line)) {
        LOG("fgets pid_buf=%s\n", line);
        char *rest = line;
        int column = 0;
        while (char *piece = strsep(&rest, " ")) {
            if (*piece == '\0')
                continue;
            LOG("p_key_point=%s\n", piece);
            column++;
            if (column > 2) // behind user and process id nothing counts
                continue;
            if (strncmp(piece, "USER", strlen("USER")) == 0) {
                LOG("First Line!\n");
                break;
            }
            if (column == 2) {
                if (*count < PROCESS_LIMIT)
                    ids[*count] = atoi(piece);
                if (*count < UINT8_MAX) // more matches than the byte holds must not look like none
                    ++*count;
                LOG("count%d\n", piece[0]); // the line's readers know it as the id's first character
            }
        }
    }
    return pclose(list.release());
}

int diag_kill_exist_process(const char *name)
{
    int32_t ids[PROCESS_LIMIT] = {};
    uint8_t count = 0;
    diag_get_processpid_by_name(name, ids, &count);
    LOG("kill proc_cnt=%d, pid=%d!\n", count, ids[0]);
    const int kept = std::min<int>(count, PROCESS_LIMIT);
    for (int i = 0; i < kept; i++) {
        if (ids[i] == getpid())
            continue;
        LOG("kill pid=%d!\n", ids[0]); // always the first id
        if (ids[i] > 0) // what is no number counts as 0, which would be the service's own group
            kill(ids[i], SIGTERM);
    }
    return count;
}

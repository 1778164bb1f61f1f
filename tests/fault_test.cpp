// Every call that a command makes fails once, in turn: the process lives, the answer is an answer, and
// nothing is left behind but what is meant to be. Ends with a table: command by command, what was failed and
// found.
//
// Each command is taken through its sample requests in a process of its own. A first run of a request counts
// its calls; then there is one run for each call, in which that one fails.
#include <fcntl.h>
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

#include <climits>
#include <cstdarg>
#include <numeric>

#include "core/table.h"
#include "tests/faulty_calls.h"
#include "tests/sample_phone.h"

namespace
{

const size_t COMMANDS = diag_command_table.count;
constexpr unsigned int RUN_LIMIT = 30; // seconds, to tell a run that hangs from one that is slow

// A detection logs hundreds of lines. The log remembers nothing from one to the next, so that lines this far
// apart may fail in one run.
constexpr int LOG_STRIDE = 32;

// What is left open on purpose, once in a request at most: streams of tools that nobody waits for, and nodes.
struct meant_to_stay {
    uint16_t code;
    bool command;
};
constexpr meant_to_stay MEANT_TO_STAY[] = {
    {0x2000, true},  // the tool that switches Wi-Fi off
    {0x2600, true},  // the log tool
    {0x0C0A, false}, // a node whose value is not the expected one
    {0x1501, false}, // the same
    {0xE600, false}, // the same
    {0xCA00, false}, // the misc partition that refused the arguments
};

// Shared with the process that runs the command, and all that is left to tell of one that has died.
struct progress {
    char name[48];
    int requests;
    int failed[FAULTY_CALLS];
    int closed; // in the runs without a fault
    int kept;   // left open as it is meant to be
    int leaks;
    int wrong; // any other complaint
    char at[256];
    char complaints[4096];
};

// Faults that a station must not notice: of the log, and of making sure that what is written is on the flash.
bool changes_nothing(faulty_call fault)
{
    return fault == NO_FAULT || fault == FAIL_LOG_WRITE || fault == FAIL_MALLOC || fault == FAIL_FSYNC;
}

// Sends the bytes of a request to its handler while `fault` happens at its `number`th call, and judges what
// comes back and what is left.
class Faults : public SamplePhone
{
  protected:
    const diagpkt_entry *command = nullptr;
    const sample *request = nullptr;
    progress *told = nullptr;

    void complain(int &counter, const char *format, ...) __attribute__((format(printf, 3, 4)))
    {
        counter++;
        size_t used = strlen(told->complaints);
        size_t room = sizeof told->complaints - used;
        int length = snprintf(told->complaints + used, room, "%s: ", told->at);
        if (length < 0 || static_cast<size_t>(length) >= room)
            return;
        va_list arguments;
        va_start(arguments, format);
        vsnprintf(told->complaints + used + length, room - static_cast<size_t>(length), format, arguments);
        va_end(arguments);
    }

    void judge_answer(const uint8_t *answer, const uint8_t *sent, const call_record &calls, faulty_call fault)
    {
        if (fault == FAIL_RESPONSE) {
            if (answer)
                complain(told->wrong, "an answer without a buffer\n");
            return;
        }
        if (calls.responses != 1)
            complain(told->leaks, "%d buffers for one answer\n", calls.responses);
        unsigned int size = answer ? response_size(answer) : 0;
        if (size != response_of(request->code)) {
            complain(told->wrong, "an answer of %u bytes\n", size);
            return;
        }
        if (memcmp(answer, sent, 5) != 0)
            complain(told->wrong, "head or selector not echoed\n");
        if (size <= 7)
            return;
        unsigned int length = answer[5] | answer[6] << 8;
        if (length > size - 7)
            complain(told->wrong, "a length of %u\n", length);
        else if (changes_nothing(fault) && request->answer != std::string(answer + 7, answer + 7 + length))
            complain(told->wrong, "answers \"%.*s\"\n", static_cast<int>(length), answer + 7);
    }

    void judge_leftovers(const call_record &calls, faulty_call fault, int open_before)
    {
        bool command_may_stay = false;
        bool node_may_stay = false;
        for (const meant_to_stay &meant : MEANT_TO_STAY)
            if (meant.code == request->code)
                (meant.command ? command_may_stay : node_may_stay) = true;
        int kept = calls.commands_left + calls.descriptors_left;
        if (calls.commands_left > command_may_stay || calls.descriptors_left > node_may_stay)
            complain(told->leaks, "%d commands and %d descriptors left\n", calls.commands_left,
                     calls.descriptors_left);
        else if (fault == NO_FAULT && kept != request->left_open)
            complain(told->wrong, "%d left open\n", kept);
        told->kept += kept;
        if (calls.streams_left != 0)
            complain(told->leaks, "%d files or folders left open\n", calls.streams_left);
        if (calls.blocks_left != 0)
            complain(told->leaks, "%d blocks of memory left\n", calls.blocks_left);
        if (int more = open_descriptors() - open_before)
            complain(told->leaks, "%d descriptors left of nobody knows what\n", more);
        if (waitpid(-1, nullptr, WNOHANG) != -1)
            complain(told->leaks, "a child left\n");
    }

    call_record run(faulty_call fault, int number)
    {
        alarm(RUN_LIMIT);
        prepare_for(*request);
        forget_log();
        const std::vector<uint8_t> sent =
            packet_of(request->code, request->selector, request->data, request->length);
        std::vector<uint8_t> packet = sent; // the handler may change it
        int open_before = open_descriptors();
        begin_calls(fault, number, fault == FAIL_LOG_WRITE ? LOG_STRIDE : INT_MAX);
        void *answer = command->handler(packet.data(), static_cast<uint16_t>(7 + request->data.size()));
        call_record calls = end_calls();
        judge_answer(static_cast<const uint8_t *>(answer), sent.data(), calls, fault);
        judge_leftovers(calls, fault, open_before);
        free_responses();
        return calls;
    }

    void run_each_fault()
    {
        told->requests++;
        auto at = [&](const char *call, int number) {
            snprintf(told->at, sizeof told->at, "0x%04X, request %d, %s %d", request->code, told->requests,
                     call, number);
        };
        at("failing nothing", 0);
        call_record clean = run(NO_FAULT, 0);
        told->closed += clean.closed;
        const std::string &line = the_phone().log.front(); // it begins with the handler's name
        line.copy(told->name, std::min(line.find(']') - 1, sizeof told->name - 1), 1);
        for (int call = 0; call < FAULTY_CALLS; call++) {
            int failed = 0;
            for (int number = 1; failed < clean.counts[call]; number++) {
                at(FAULTY_CALL_NAMES[call], number);
                int more = run(static_cast<faulty_call>(call), number).failed;
                if (more == 0) {
                    complain(told->wrong, "not called again\n");
                    break;
                }
                failed += more;
            }
            told->failed[call] += failed;
        }
    }

    void run_each_request()
    {
        int nowhere = open("/dev/null", O_WRONLY | O_CLOEXEC); // for the service's log
        dup2(nowhere, STDOUT_FILENO);
        close(nowhere);
        std::set<uint16_t> codes;
        for (const sample &each : samples()) {
            if (entry_of(each.code) != command)
                continue;
            codes.insert(each.code);
            request = &each;
            run_each_fault();
        }
        if (static_cast<int>(codes.size()) != command->high - command->low + 1)
            complain(told->wrong, "a code without a request\n");
    }

    static void print(const progress *all, const std::vector<bool> &died)
    {
        constexpr char HEADER[] = "%-13s %-34s %8s %8s %8s %8s %8s %8s\n";
        constexpr char ROW[] = "%-13s %-34s %8d %8d %8d %8d %8d %8d\n";
        progress sum = {};
        int all_failed = 0;
        int all_died = 0;
        printf(HEADER, "code", "command", "requests", "failed", "closed", "kept", "crashes", "leaks");
        for (size_t i = 0; i < COMMANDS; i++) {
            const diagpkt_entry &of = diag_command_table.entries[i];
            const progress &row = all[i];
            char code[16];
            int length = snprintf(code, sizeof code, "0x%04X", of.low);
            if (of.high != of.low)
                snprintf(code + length, sizeof code - 6, "-0x%04X", of.high);
            int failed = std::accumulate(row.failed, row.failed + FAULTY_CALLS, 0);
            printf(ROW, code, row.name, row.requests, failed, row.closed, row.kept, died[i] ? 1 : 0,
                   row.leaks);
            all_failed += failed;
            all_died += died[i];
            sum.requests += row.requests;
            sum.closed += row.closed;
            sum.kept += row.kept;
            sum.leaks += row.leaks;
            for (int call = 0; call < FAULTY_CALLS; call++)
                sum.failed[call] += row.failed[call];
        }
        printf(ROW, "all", "", sum.requests, all_failed, sum.closed, sum.kept, all_died, sum.leaks);
        printf("\nfailed, by call:");
        for (int call = 0; call < FAULTY_CALLS; call++) {
            printf("%s %s %d", call == 0 ? "" : ",", FAULTY_CALL_NAMES[call], sum.failed[call]);
            EXPECT_GT(sum.failed[call], 0) << "never called: " << FAULTY_CALL_NAMES[call];
        }
        printf("\n");
    }
};

TEST_F(Faults, OfEveryCallOfEveryCommand)
{
    auto *all = static_cast<progress *>(mmap(nullptr, COMMANDS * sizeof(progress), PROT_READ | PROT_WRITE,
                                             MAP_SHARED | MAP_ANONYMOUS, -1, 0));
    ASSERT_NE(all, MAP_FAILED);
    std::vector<bool> died(COMMANDS);
    for (size_t i = 0; i < COMMANDS; i++) {
        command = &diag_command_table.entries[i];
        if (command->low == 0x012A || command->low == 0x0B00) // close a stream on a thread of their own
            continue;
        told = &all[i];
        pid_t process = fork();
        ASSERT_GE(process, 0);
        if (process == 0) {
            run_each_request();
            _exit(0);
        }
        int status = 0;
        waitpid(process, &status, 0);
        died[i] = status != 0;
        EXPECT_EQ(status, 0) << "died at " << told->at;
        EXPECT_EQ(told->leaks + told->wrong, 0) << told->complaints;
    }
    print(all, died);
    munmap(all, COMMANDS * sizeof(progress));
}

} // namespace

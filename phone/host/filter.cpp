// What a namespace does not part from the workstation, and what a phone has no use for:
//
// - keys: they are told apart by their owner's id alone, and that is the user's, in the phone too. Whoever
//   knows or lists the number of the user's keyring reads, changes and clears their keys;
// - sockets of families that belong to no network namespace (of a virtual machine to its host, for one);
// - rings of requests, which the kernel carries out without looking at this filter;
// - programs for the kernel, its counters and its page faults: nobody's on a phone.
//
// They are refused as a kernel without them refuses them.
#include "filter.h"

#include <linux/audit.h>
#include <linux/filter.h>
#include <linux/seccomp.h>
#include <sys/socket.h>
#include <sys/syscall.h>

#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <vector>

namespace host
{

#if defined(__x86_64__)
static constexpr uint32_t MACHINE = AUDIT_ARCH_X86_64;
#elif defined(__aarch64__)
static constexpr uint32_t MACHINE = AUDIT_ARCH_AARCH64;
#else
#error "which machine's system calls are these?"
#endif

static constexpr long REFUSED[] = {SYS_add_key,        SYS_request_key,       SYS_keyctl, SYS_io_uring_setup,
                                   SYS_io_uring_enter, SYS_io_uring_register, SYS_bpf,    SYS_perf_event_open,
                                   SYS_userfaultfd};
static constexpr int FAMILIES[] = {AF_UNIX, AF_INET, AF_INET6, AF_NETLINK};
static constexpr uint32_t OTHER_ABI = 0x40000000; // from here the numbers of x32, the same calls once more

std::string system_call_filter()
{
    constexpr uint32_t NUMBER = offsetof(seccomp_data, nr), ABI = offsetof(seccomp_data, arch),
                       FIRST_ARGUMENT = offsetof(seccomp_data, args);
    const sock_filter allow = BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ALLOW);
    const auto refuse = [](uint32_t error) {
        return sock_filter(BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ERRNO | error));
    };
    const auto load = [](uint32_t offset) { return sock_filter(BPF_STMT(BPF_LD | BPF_W | BPF_ABS, offset)); };
    // The next instruction is for what is equal, the one behind it for all else.
    const auto unless_equal = [](uint32_t value) {
        return sock_filter(BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, value, 0, 1));
    };
    std::vector<sock_filter> program = {
        load(ABI),    BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, MACHINE, 1, 0),   refuse(ENOSYS),
        load(NUMBER), BPF_JUMP(BPF_JMP | BPF_JGE | BPF_K, OTHER_ABI, 0, 1), refuse(ENOSYS)};
    for (const long number : REFUSED) {
        program.push_back(unless_equal(static_cast<uint32_t>(number)));
        program.push_back(refuse(ENOSYS));
    }
    program.push_back(BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, SYS_socket, 1, 0));
    program.push_back(allow);
    program.push_back(load(FIRST_ARGUMENT)); // its low half: the machines that there are begin with it
    for (const int family : FAMILIES) {
        program.push_back(unless_equal(static_cast<uint32_t>(family)));
        program.push_back(allow);
    }
    program.push_back(refuse(EAFNOSUPPORT));
    return {reinterpret_cast<const char *>(program.data()), program.size() * sizeof program[0]};
}

} // namespace host

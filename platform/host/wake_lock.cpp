// libhardware_legacy of a workstation: the node of the held wake locks, kept as the kernel keeps it. On the
// virtual phone it is a regular file: the names of the held locks, separated by blanks, and a line feed.
#include "descriptor.h"
#include "export.h"
#include "hardware_legacy.h"

#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <string>
#include <string_view>

static constexpr char NODE[] = "/sys/power/wake_lock";
static constexpr size_t NODE_SIZE_MAX = 4096;

// The names in the node but `name`, a blank behind each; tells whether that was there.
static std::string names_without(std::string_view node, std::string_view name, bool &was_there)
{
    std::string others;
    was_there = false;
    for (size_t begin, end = 0; (begin = node.find_first_not_of(" \n", end)) != std::string_view::npos;) {
        end = std::min(node.find_first_of(" \n", begin), node.size());
        const std::string_view held = node.substr(begin, end - begin);
        if (held == name)
            was_there = true;
        else
            others.append(held) += ' ';
    }
    return others;
}

// Rewrites the node without `name`, then with it at the end if it is to be held. A name is in it once at the
// most.
static int update(std::string_view name, bool hold)
{
    if (name.empty() || name.find_first_of(" \t\n") != std::string_view::npos)
        return -EINVAL;
    const owned::descriptor node(open(NODE, O_RDWR | O_CLOEXEC));
    if (!node)
        return -errno;
    while (flock(node.get(), LOCK_EX) != 0)
        if (errno != EINTR)
            return -errno;
    char held[NODE_SIZE_MAX];
    const ssize_t length = read(node.get(), held, sizeof held);
    if (length < 0)
        return -errno;

    bool was_held;
    std::string kept = names_without({held, static_cast<size_t>(length)}, name, was_held);
    if (was_held == hold)
        return hold ? 0 : -EINVAL;
    if (hold)
        kept.append(name) += ' ';
    if (kept.size() > NODE_SIZE_MAX)
        return -ENOSPC;
    kept.replace(std::max<size_t>(kept.size(), 1) - 1, 1, "\n"); // for the last blank
    const auto size = static_cast<ssize_t>(kept.size());
    return pwrite(node.get(), kept.data(), kept.size(), 0) == size && ftruncate(node.get(), size) == 0
               ? 0
               : -errno;
}

extern "C" EXPORT int acquire_wake_lock(int level, const char *name)
{
    (void)level;
    return update(name ? name : "", true);
}

extern "C" EXPORT int release_wake_lock(const char *name) { return update(name ? name : "", false); }

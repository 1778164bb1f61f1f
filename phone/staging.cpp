#include "staging.h"

#include "log.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <sstream>

namespace fs = std::filesystem;

static constexpr char STAGING[] = "/.phone/staging";
static constexpr char DELAYED_TOOL[] = "/.phone/delayed"; // the script that stands in for a tool
static constexpr char DELAYED[] = "/.delayed";            // the tools themselves, and how long each takes
static constexpr const char *TOOL_FOLDERS[] = {"/system/bin", "/vendor/bin"};
static constexpr int LOG_WARN = 5;

static void refused(const std::string &what, const std::string &why)
{
    __android_log_print(LOG_WARN, "init", "%s cannot be staged: %s", what.c_str(), why.c_str());
}

Staging read_staging()
{
    Staging staging;
    std::ifstream file(STAGING);
    for (std::string line; std::getline(file, line);) {
        std::istringstream words(line);
        std::string kind, name, value;
        words >> kind >> name;
        words.get(); // one blank; any other is the value's
        std::getline(words, value);
        if (kind == "prop")
            staging.properties[name] = value;
        else if (kind == "set")
            staging.nodes.emplace_back(name, value);
        else if (kind == "slow")
            staging.tools[name] = value;
        else if (kind == "hang")
            staging.tools[name] = kind;
    }
    return staging;
}

// What a node lies in may be kept from an earlier boot, and be anything by now: a link, a FIFO, a folder.
static bool write_node(const fs::path &path, const std::string &text)
{
    std::error_code error;
    fs::create_directories(path.parent_path(), error);
    const int fd = open(path.c_str(),
                        O_WRONLY | O_CREAT | O_TRUNC | O_NONBLOCK | O_NOFOLLOW | O_NOCTTY | O_CLOEXEC, 0644);
    if (fd < 0)
        return false;
    struct stat there {
    };
    const bool is_file = fstat(fd, &there) == 0 && S_ISREG(there.st_mode);
    errno = is_file ? ENOSPC : EINVAL; // for a write that is short
    const ssize_t count = is_file ? write(fd, text.data(), text.size()) : -1;
    close(fd);
    return count == static_cast<ssize_t>(text.size());
}

void stage_nodes(const Staging &staging)
{
    for (const auto &[path, value] : staging.nodes)
        if (!write_node(path, value + "\n"))
            refused(path, strerror(errno));
}

static fs::path target_of(const fs::path &link)
{
    std::error_code ignored;
    return (link.parent_path() / fs::read_symlink(link, ignored)).lexically_normal();
}

// The tool moves away and the script takes its place, under its name. An applet is a link, and so are other
// names of a tool: these are of the tool that moved.
static void delay(const fs::path &tool, const std::string &seconds, std::error_code &error)
{
    const fs::path moved = DELAYED / tool.filename();
    for (const auto &entry : fs::directory_iterator(tool.parent_path(), error)) {
        if (!entry.is_symlink(error) || target_of(entry) != tool)
            continue;
        fs::remove(entry, error);
        fs::create_symlink(moved, entry, error);
    }
    if (fs::is_symlink(tool)) {
        fs::create_symlink(target_of(tool), moved, error);
        fs::remove(tool, error);
    } else {
        fs::rename(tool, moved, error);
    }
    if (error)
        return;
    fs::copy_file(DELAYED_TOOL, tool, error);
    if (!error && !write_node(moved.string() + ".seconds", seconds + "\n"))
        error.assign(errno, std::generic_category());
}

void stage_tools(const Staging &staging)
{
    std::error_code error;
    if (!staging.tools.empty())
        fs::create_directory(DELAYED, error);
    for (const auto &[name, seconds] : staging.tools) {
        bool found = false;
        for (const char *folder : TOOL_FOLDERS) {
            const fs::path tool = fs::path(folder) / name;
            if (found || !fs::exists(fs::symlink_status(tool, error)))
                continue;
            found = true;
            error.clear();
            delay(tool, seconds, error);
            if (error)
                refused(name, error.message());
        }
        if (!found)
            refused(name, "this phone has no such tool");
    }
}

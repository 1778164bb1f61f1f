#include "station/program/kept_file.h"

#include "platform/owned/descriptor.h"
#include "station/client/errors.h"

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <random>
#include <sys/stat.h>
#include <unistd.h>
#include <utility>

namespace station
{

// Beside the file, and nobody's.
static std::string name_of_part(const std::string &path)
{
    return path + "." + std::to_string(std::random_device{}()) + ".part";
}

// A file without a name in the folder of `path`, where the file system has such.
static owned::descriptor nameless_beside(const std::string &path)
{
    const std::filesystem::path folder = std::filesystem::path(path).replace_filename(".");
    return owned::descriptor(open(folder.c_str(), O_TMPFILE | O_WRONLY | O_CLOEXEC, DEFFILEMODE));
}

KeptFile::KeptFile(std::string path) : path_(std::move(path))
{
    struct stat status = {};
    if (stat(path_.c_str(), &status) == 0 && !S_ISREG(status.st_mode)) {
        file_ = std::fopen(path_.c_str(), "we");
    } else if (owned::descriptor nameless = nameless_beside(path_)) {
        // Whoever ends this program in the middle, a file without a name goes with it.
        has_no_name_ = true;
        file_ = fdopen(nameless.release(), "w");
    } else {
        part_ = name_of_part(path_);
        file_ = std::fopen(part_.c_str(), "wxe");
    }
    if (!file_)
        fail();
}

KeptFile::~KeptFile()
{
    if (file_)
        std::fclose(file_);
    if (!part_.empty())
        unlink(part_.c_str());
}

void KeptFile::keep()
{
    if (std::fflush(file_) != 0 || std::ferror(file_))
        fail();
    if (has_no_name_) {
        const std::string inode = "/proc/self/fd/" + std::to_string(fileno(file_));
        const std::string name = name_of_part(path_);
        if (linkat(AT_FDCWD, inode.c_str(), AT_FDCWD, name.c_str(), AT_SYMLINK_FOLLOW) != 0)
            fail();
        part_ = name;
    }
    if (std::fclose(std::exchange(file_, nullptr)) != 0)
        fail();
    if (part_.empty())
        return;
    if (std::rename(part_.c_str(), path_.c_str()) != 0)
        fail();
    part_.clear();
}

void KeptFile::fail() const { throw OutputError("cannot write " + path_ + ": " + std::strerror(errno)); }

} // namespace station

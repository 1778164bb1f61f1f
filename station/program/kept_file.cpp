#include "station/program/kept_file.h"

#include "station/client/errors.h"

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <random>
#include <sys/stat.h>
#include <unistd.h>
#include <utility>

namespace station
{

static constexpr mode_t MODE = 0666; // as far as the umask lets it

// A name beside the file's that nobody has.
static std::string name_of_part(const std::string &path)
{
    static constexpr char LETTERS[] = "abcdefghijklmnopqrstuvwxyz0123456789";
    std::random_device chance;
    std::string name = path + ".";
    for (int i = 0; i < 6; i++)
        name += LETTERS[chance() % (sizeof LETTERS - 1)];
    return name + ".part";
}

KeptFile::KeptFile(std::string path) : path_(std::move(path))
{
    struct stat status = {};
    if (stat(path_.c_str(), &status) == 0 && !S_ISREG(status.st_mode)) {
        file_ = std::fopen(path_.c_str(), "we");
        if (!file_)
            fail();
        return;
    }
    part_ = name_of_part(path_);
    // Whoever ends this program in the middle, a file without a name goes with it.
    const size_t slash = path_.rfind('/');
    const std::string folder = slash == std::string::npos ? "." : path_.substr(0, slash + 1);
    int fd = open(folder.c_str(), O_TMPFILE | O_WRONLY | O_CLOEXEC, MODE);
    has_no_name_ = fd >= 0;
    if (fd < 0)
        fd = open(part_.c_str(), O_CREAT | O_EXCL | O_WRONLY | O_CLOEXEC, MODE);
    file_ = fd >= 0 ? fdopen(fd, "w") : nullptr;
    if (!file_)
        fail();
}

KeptFile::~KeptFile()
{
    if (!file_)
        return;
    std::fclose(file_);
    if (!part_.empty() && !has_no_name_)
        unlink(part_.c_str());
}

void KeptFile::keep()
{
    const bool is_written = std::fflush(file_) == 0 && std::ferror(file_) == 0;
    const std::string inode = "/proc/self/fd/" + std::to_string(fileno(file_));
    if (is_written && has_no_name_ &&
        linkat(AT_FDCWD, inode.c_str(), AT_FDCWD, part_.c_str(), AT_SYMLINK_FOLLOW) == 0)
        has_no_name_ = false;
    if (!is_written || has_no_name_)
        fail();
    if (std::fclose(std::exchange(file_, nullptr)) == 0 &&
        (part_.empty() || std::rename(part_.c_str(), path_.c_str()) == 0))
        return;
    const int error = errno;
    if (!part_.empty())
        unlink(part_.c_str());
    errno = error;
    fail();
}

void KeptFile::fail() const { throw OutputError("cannot write " + path_ + ": " + std::strerror(errno)); }

} // namespace station

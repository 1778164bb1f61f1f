// A file of the workstation that is written whole or not at all.
#pragma once

#include "station/client/errors.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <string>
#include <sys/stat.h>
#include <unistd.h>
#include <utility>

namespace station
{

// It is there under its name only when it is kept; a pipe or a device gets what comes at once. Throws
// OutputError.
class KeptFile
{
  public:
    explicit KeptFile(std::string path) : path_(std::move(path))
    {
        struct stat status {
        };
        const bool is_other = stat(path_.c_str(), &status) == 0 && !S_ISREG(status.st_mode);
        written_ = is_other ? path_ : path_ + ".part";
        file_ = std::fopen(written_.c_str(), "we");
        if (!file_)
            fail();
    }
    ~KeptFile()
    {
        if (!file_)
            return;
        std::fclose(file_);
        if (written_ != path_)
            unlink(written_.c_str());
    }
    KeptFile(const KeptFile &) = delete;
    KeptFile &operator=(const KeptFile &) = delete;

    [[nodiscard]] FILE *file() const { return file_; }

    void keep()
    {
        const bool failed = std::ferror(file_) != 0;
        FILE *const file = std::exchange(file_, nullptr);
        if (std::fclose(file) != 0 || failed ||
            (written_ != path_ && std::rename(written_.c_str(), path_.c_str()) != 0))
            fail();
    }

  private:
    [[noreturn]] void fail() const
    {
        throw OutputError("cannot write " + path_ + ": " + std::strerror(errno));
    }

    std::string path_, written_;
    FILE *file_ = nullptr;
};

} // namespace station

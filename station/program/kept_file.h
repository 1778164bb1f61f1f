// A file of the workstation that is written whole or not at all.
#pragma once

#include <cstdio>
#include <string>

namespace station
{

// It is there under its name only when it is kept, and nothing is left of it otherwise; a pipe or a device
// gets what comes at once. Throws OutputError.
class KeptFile
{
  public:
    explicit KeptFile(std::string path);
    ~KeptFile();
    KeptFile(const KeptFile &) = delete;
    KeptFile &operator=(const KeptFile &) = delete;

    [[nodiscard]] FILE *file() const { return file_; }

    void keep();

  private:
    [[noreturn]] void fail() const;

    std::string path_;
    std::string part_;         // where it grows, if it has a name by then
    bool has_no_name_ = false; // the file system gives it none before it is whole
    FILE *file_ = nullptr;
};

} // namespace station

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
    bool has_no_name_ = false; // before it is whole
    std::string part_;         // its name until it is kept, if it has one
    FILE *file_ = nullptr;
};

} // namespace station

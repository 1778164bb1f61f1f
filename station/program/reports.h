// Files of a run for other programs, written whole or not at all.
#pragma once

#include "station/catalogue/command_line.h"
#include "station/program/kept_file.h"
#include "station/records/run.h"

#include <memory>
#include <string>
#include <vector>

namespace station
{

struct Reports {
    std::string paths[3]; // JUnit, CSV, JSON lines

    void add_options(CommandLine &line);
    [[nodiscard]] bool any() const;
};

class ReportFiles
{
  public:
    // Throws UsageError, and OutputError when a file cannot be written, before anything is tested.
    explicit ReportFiles(const Reports &reports);

    // Throws OutputError.
    void keep(const records::Run &run, const std::vector<records::Step> &steps);

  private:
    std::unique_ptr<KeptFile> files_[3];
};

} // namespace station

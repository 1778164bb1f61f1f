// Files of a run for other programs, written whole or not at all.
#pragma once

#include "station/records/run.h"

#include <CLI/CLI.hpp>
#include <string>
#include <utility>
#include <vector>

namespace station
{

struct Reports {
    std::string paths[3]; // JUnit, CSV, JSON lines

    void add_options(CLI::App &app);
    [[nodiscard]] bool any() const;
};

class ReportFiles
{
  public:
    // Throws OutputError when a file cannot be written, before anything is tested.
    explicit ReportFiles(const Reports &reports);
    ~ReportFiles();
    ReportFiles(const ReportFiles &) = delete;
    ReportFiles &operator=(const ReportFiles &) = delete;

    // Throws OutputError.
    void keep(const std::vector<std::pair<records::Run, std::vector<records::Step>>> &runs);

  private:
    std::vector<std::string> paths_; // as given; empty: not wanted
};

} // namespace station

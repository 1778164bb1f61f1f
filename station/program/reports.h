// Files of a run for other programs, written whole or not at all.
#pragma once

#include "station/catalogue/command_line.h"
#include "station/program/kept_file.h"
#include "station/records/forms.h"

#include <memory>
#include <string>
#include <utility>
#include <vector>

namespace station
{

struct Reports {
    std::string junit, csv, jsonl; // paths; empty where none is wanted

    void add_options(CommandLine &line);
    [[nodiscard]] std::vector<std::pair<records::Form, std::string>> wanted() const;
    [[nodiscard]] bool any() const { return !wanted().empty(); }
};

class ReportFiles
{
  public:
    // Throws UsageError, and OutputError when a file cannot be written, before anything is tested.
    explicit ReportFiles(const Reports &reports);

    // Throws OutputError.
    void keep(const records::Run &run, const std::vector<records::Step> &steps);

  private:
    std::vector<std::pair<records::Form, std::unique_ptr<KeptFile>>> files_;
};

} // namespace station

#include "station/program/reports.h"

#include "station/client/errors.h"
#include "station/records/forms.h"

namespace station
{

static constexpr records::Form FORMS[] = {records::Form::junit, records::Form::csv, records::Form::jsonl};

void Reports::add_options(CommandLine &line)
{
    line.takes("--junit FILE", paths[0], "write the run to this file as JUnit's XML");
    line.takes("--csv FILE", paths[1], "as CSV, a line a step");
    line.takes("--jsonl FILE", paths[2], "as a line of JSON");
}

bool Reports::any() const { return !paths[0].empty() || !paths[1].empty() || !paths[2].empty(); }

ReportFiles::ReportFiles(const Reports &reports)
{
    for (size_t i = 0; i < std::size(FORMS); i++) {
        if (reports.paths[i] == "-")
            throw UsageError("a report beside the table needs a file of its own, not -");
        if (!reports.paths[i].empty())
            files_[i] = std::make_unique<KeptFile>(reports.paths[i]);
    }
}

void ReportFiles::keep(const records::Run &run, const std::vector<records::Step> &steps)
{
    for (size_t i = 0; i < std::size(FORMS); i++) {
        if (!files_[i])
            continue;
        records::Export output(FORMS[i], files_[i]->file());
        output.add(run, steps);
        output.end();
        files_[i]->keep();
    }
}

} // namespace station

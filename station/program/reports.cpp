#include "station/program/reports.h"

#include "station/client/errors.h"

namespace station
{

void Reports::add_options(CommandLine &line)
{
    line.takes("--junit FILE", junit, "write the run to this file as JUnit's XML");
    line.takes("--csv FILE", csv, "as CSV, a line a step");
    line.takes("--jsonl FILE", jsonl, "as a line of JSON");
}

std::vector<std::pair<records::Form, std::string>> Reports::wanted() const
{
    using records::Form;
    std::vector<std::pair<Form, std::string>> all;
    for (const auto &[form, path] :
         {std::pair{Form::junit, &junit}, {Form::csv, &csv}, {Form::jsonl, &jsonl}})
        if (!path->empty())
            all.emplace_back(form, *path);
    return all;
}

ReportFiles::ReportFiles(const Reports &reports)
{
    for (const auto &[form, path] : reports.wanted()) {
        if (path == "-")
            throw UsageError("a report beside the table needs a file of its own, not -");
        files_.emplace_back(form, std::make_unique<KeptFile>(path));
    }
}

void ReportFiles::keep(const records::Run &run, const std::vector<records::Step> &steps)
{
    for (const auto &[form, file] : files_) {
        records::Export output(form, file->file());
        output.add(run, steps);
        output.end();
        file->keep();
    }
}

} // namespace station

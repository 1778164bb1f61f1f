#include "station/program/reports.h"

#include "station/client/errors.h"
#include "station/records/forms.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <sys/stat.h>
#include <unistd.h>

namespace station
{

static constexpr records::Form FORMS[] = {records::Form::junit, records::Form::csv, records::Form::jsonl};

void Reports::add_options(CLI::App &app)
{
    app.add_option("--junit", paths[0], "write the run to this file as JUnit's XML")->type_name("FILE");
    app.add_option("--csv", paths[1], "as CSV, a line a step")->type_name("FILE");
    app.add_option("--jsonl", paths[2], "as a line of JSON")->type_name("FILE");
}

bool Reports::any() const { return !paths[0].empty() || !paths[1].empty() || !paths[2].empty(); }

static bool is_other(const std::string &path)
{
    struct stat status = {};
    return stat(path.c_str(), &status) == 0 && !S_ISREG(status.st_mode);
}

static std::string part_of(const std::string &path) { return is_other(path) ? path : path + ".part"; }

ReportFiles::ReportFiles(const Reports &reports) : paths_(std::begin(reports.paths), std::end(reports.paths))
{
    for (const std::string &path : paths_) {
        if (path == "-")
            throw UsageError("a report beside the table needs a file of its own, not -");
        if (path.empty() || is_other(path))
            continue;
        FILE *const file = std::fopen(part_of(path).c_str(), "we");
        if (!file)
            throw OutputError("cannot write " + path + ": " + std::strerror(errno));
        std::fclose(file);
    }
}

ReportFiles::~ReportFiles()
{
    for (const std::string &path : paths_)
        if (!path.empty() && part_of(path) != path)
            unlink(part_of(path).c_str());
}

void ReportFiles::keep(const std::vector<std::pair<records::Run, std::vector<records::Step>>> &runs)
{
    for (size_t i = 0; i < std::size(FORMS); i++) {
        if (paths_[i].empty())
            continue;
        const std::string written = part_of(paths_[i]);
        try {
            records::Export output(FORMS[i], written);
            for (const auto &[run, steps] : runs)
                output.add(run, steps);
            output.close();
        } catch (const records::Error &error) {
            throw OutputError(error.what());
        }
        if (written != paths_[i] && std::rename(written.c_str(), paths_[i].c_str()) != 0)
            throw OutputError("cannot write " + paths_[i] + ": " + std::strerror(errno));
        paths_[i].clear();
    }
}

} // namespace station

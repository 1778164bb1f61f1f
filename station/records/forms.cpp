#include "station/records/forms.h"

#include "station/records/columns.h"
#include "station/records/text.h"
#include "station/text/json.h"
#include "station/text/text.h"

#include <algorithm>

namespace station::records
{

static Json to_json(const Column &column)
{
    if (const auto *text = std::get_if<std::string>(&column.value))
        return column.kind == Kind::bytes ? to_hex(*text) : *text;
    if (const auto *number = std::get_if<int64_t>(&column.value))
        return *number;
    const auto *real = std::get_if<double>(&column.value);
    return real ? Json(*real) : Json();
}

template <typename Row> static Json to_json(const Row &row)
{
    Json json;
    for (const Column &column : columns(row))
        json[column.name] = to_json(column);
    return json;
}

std::string json(const Run &run) { return to_json(run).dump(); }

std::string json(const Run &run, const std::vector<Step> &steps)
{
    Json all = to_json(run);
    Json &of_steps = all["steps"] = Json::array();
    for (const Step &step : steps)
        of_steps.push_back(to_json(step));
    return all.dump();
}

static bool is_printable(uint32_t character)
{
    if (character == '\t' || character == '\n' || character == '\r')
        return true;
    const bool is_control = character < 0x20 || (character >= 0x7F && character < 0xA0);
    return !is_control && character != 0xFFFE && character != 0xFFFF;
}

// Without what neither XML takes nor a spreadsheet shows, and a terminal obeys.
static std::string printable(const std::string &text) { return escaped_unless(is_printable, text); }

// A spreadsheet takes a cell that begins like a formula for one. Numbers may begin with a minus sign; others
// get a quote.
std::string csv_cell(const std::string &text)
{
    static constexpr std::string_view STARTS[] = {"=",  "+",  "-",  "@",  "\t", "\r",
                                                  "\n", "＝", "＋", "－", "＠"};
    std::string cell = printable(text);
    const bool looks_like_formula =
        std::any_of(std::begin(STARTS), std::end(STARTS),
                    [&](std::string_view start) { return cell.rfind(start, 0) == 0; });
    if (looks_like_formula && !is_decimal(cell))
        cell.insert(0, "'");
    if (cell.find_first_of(",\"\r\n") == std::string::npos)
        return cell;
    std::string quoted = "\"";
    for (char character : cell)
        quoted.append(character == '"' ? 2 : 1, character);
    return quoted + '"';
}

std::string xml_text(const std::string &text)
{
    std::string escaped;
    for (char character : printable(text))
        switch (character) {
        case '&':
            escaped += "&amp;";
            break;
        case '<':
            escaped += "&lt;";
            break;
        case '>':
            escaped += "&gt;";
            break;
        case '"':
            escaped += "&quot;";
            break;
        case '\t': // in an attribute these three would become blanks
        case '\n':
        case '\r':
            escaped += "&#" + std::to_string(character) + ";";
            break;
        default:
            escaped += character;
        }
    return escaped;
}

static std::string number_text(double number, int decimals)
{
    char text[48];
    std::snprintf(text, sizeof text, "%.*f", decimals, number);
    return text;
}

// For people and spreadsheets: nothing for NULL, milliseconds to the microsecond.
static std::string shown(const Column &column)
{
    if (const auto *text = std::get_if<std::string>(&column.value))
        return column.kind == Kind::bytes ? to_hex(*text) : *text;
    if (const auto *number = std::get_if<int64_t>(&column.value))
        return std::to_string(*number);
    if (const auto *real = std::get_if<double>(&column.value))
        return number_text(*real, 3);
    return std::string_view(column.name) == "verdict" ? "running" : "";
}

// The columns' names, but for those that a run and a step share.
static const char CSV_HEAD[] =
    "run,unit,unit_source,plan,plan_digest,station,port,software,started,ended,run_verdict,failing,run_cause,"
    "number,began,phase,name,code,request,request_bytes,answer,answer_bytes,measured,measured_unit,low,"
    "high,expected,verdict,milliseconds,cause\r\n";

template <typename Row> static std::string csv_cells(const Row &row)
{
    std::string cells;
    for (const Column &column : columns(row))
        cells += "," + csv_cell(shown(column));
    return cells.substr(1);
}

// A line for each step, the run in front of it; a run without steps has a line too.
static std::string csv_lines(const Run &run, const std::vector<Step> &steps)
{
    const std::string head = csv_cells(run);
    std::string lines;
    for (const Step &step : steps)
        lines += head + "," + csv_cells(step) + "\r\n";
    return steps.empty() ? head + std::string(columns(Step()).size(), ',') + "\r\n" : lines;
}

static const char JUNIT_HEAD[] = "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<testsuites>\n";
static const char JUNIT_TAIL[] = "</testsuites>\n";

static std::string attribute(const char *name, const std::string &text)
{
    return std::string(" ") + name + "=\"" + xml_text(text) + "\"";
}

// The element in a test case that did not pass.
static std::string junit_problem(const std::string &verdict, const std::string &message,
                                 const std::string &text)
{
    const char *element = verdict == "fail" ? "failure" : "error";
    return std::string("      <") + element + attribute("type", verdict) + attribute("message", message) +
           ">" + xml_text(text) + "</" + element + ">\n";
}

static std::string junit_case(const std::string &group, const Step &step)
{
    std::string text = "    <testcase" + attribute("classname", group) +
                       attribute("name", std::to_string(step.number) + " " + step.name) +
                       attribute("time", number_text(step.milliseconds / 1000, 6)) + ">\n";
    std::string said = step.code + (step.code.empty() ? "" : " ") + step.request + "\n" + step.answer;
    if (!step.measured.empty())
        said += "\nmeasured " + step.measured + " " + step.unit;
    if (!step.low.empty() || !step.high.empty())
        said += "\nlimits " + step.low + ".." + step.high + " " + step.unit;
    if (!step.expected.empty())
        said += "\nexpected " + step.expected;
    if (!step.cause.empty())
        said += "\nbecause " + step.cause;
    const std::string message = step.cause.empty() ? step.answer : step.cause;
    if (step.verdict != Verdict::pass)
        text += junit_problem(word(step.verdict), message.substr(0, message.find('\n')), said);
    else
        text += "      <system-out>" + xml_text(said) + "</system-out>\n";
    return text + "    </testcase>\n";
}

static std::string junit_suite(const Run &run, const std::vector<Step> &steps)
{
    const auto count = [&](Verdict verdict) {
        return std::count_if(steps.begin(), steps.end(),
                             [&](const Step &step) { return step.verdict == verdict; });
    };
    const auto failures = count(Verdict::fail);
    auto errors = count(Verdict::error) + count(Verdict::aborted);
    auto tests = static_cast<std::ptrdiff_t>(steps.size());
    // A run may end without a pass though no step tells: it gets a case of its own, or it would look as if it
    // had passed.
    std::string own;
    if (run.verdict != Verdict::pass && failures + errors == 0) {
        const std::string verdict = run.verdict ? word(*run.verdict) : "running";
        tests++;
        errors++;
        own = "    <testcase" + attribute("classname", run.plan) + attribute("name", "run") +
              attribute("time", "0") + ">\n" +
              junit_problem("error", run.cause.empty() ? verdict : run.cause, verdict) + "    </testcase>\n";
    }
    const double seconds = run.ended ? std::chrono::duration<double>(*run.ended - run.started).count() : 0;
    std::string text =
        "  <testsuite" + attribute("name", run.plan + " on " + run.unit) + attribute("id", run.id) +
        attribute("hostname", run.station) + attribute("timestamp", time_text(run.started)) +
        attribute("time", number_text(seconds, 3)) + attribute("tests", std::to_string(tests)) +
        attribute("failures", std::to_string(failures)) + attribute("errors", std::to_string(errors)) +
        attribute("skipped", "0") + ">\n    <properties>\n";
    for (const Column &column : columns(run)) {
        const bool is_id = std::string_view(column.name) == "id";
        text += "      <property" + attribute("name", is_id ? "run" : column.name) +
                attribute("value", shown(column)) + "/>\n";
    }
    text += "    </properties>\n";
    for (const Step &step : steps)
        text += junit_case(step.phase.empty() ? run.plan : run.plan + "." + step.phase, step);
    return text + own + "  </testsuite>\n";
}

Export::Export(Form form, FILE *file) : form_(form), file_(file)
{
    if (form == Form::junit)
        write(JUNIT_HEAD);
    else if (form == Form::csv)
        write(CSV_HEAD);
}

void Export::add(const Run &run, const std::vector<Step> &steps)
{
    write(form_ == Form::junit ? junit_suite(run, steps)
          : form_ == Form::csv ? csv_lines(run, steps)
                               : json(run, steps) + "\n");
}

void Export::end()
{
    if (form_ == Form::junit)
        write(JUNIT_TAIL);
}

} // namespace station::records

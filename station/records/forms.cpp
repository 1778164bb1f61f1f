#include "station/records/forms.h"

#include "station/records/text.h"

#include <algorithm>
#include <nlohmann/json.hpp>

namespace station::records
{

using Json = nlohmann::ordered_json;

static const char *verdict_word(const Run &run) { return run.verdict ? word(*run.verdict) : "running"; }

static Json text_or_null(const std::string &text) { return text.empty() ? Json() : Json(text); }

static Json bytes_or_null(const std::optional<std::string> &bytes)
{
    return bytes ? Json(to_hex(*bytes)) : Json();
}

static Json to_json(const Run &run)
{
    return {{"id", run.id},
            {"unit", run.unit},
            {"unit_source", run.unit_is_port ? "port" : "unit"},
            {"plan", run.plan},
            {"plan_digest", run.plan_digest},
            {"station", run.station},
            {"port", run.port},
            {"software", run.software},
            {"started", time_text(run.started)},
            {"ended", run.ended ? Json(time_text(*run.ended)) : Json()},
            {"verdict", run.verdict ? Json(word(*run.verdict)) : Json()},
            {"failing", text_or_null(run.failing)},
            {"cause", text_or_null(run.cause)}};
}

static Json to_json(const Step &step)
{
    return {{"number", step.number},
            {"began", step.began},
            {"phase", text_or_null(step.phase)},
            {"name", step.name},
            {"code", text_or_null(step.code)},
            {"request", step.request},
            {"request_bytes", bytes_or_null(step.request_bytes)},
            {"answer", step.answer},
            {"answer_bytes", bytes_or_null(step.answer_bytes)},
            {"measured", text_or_null(step.measured)},
            {"unit", text_or_null(step.unit)},
            {"low", text_or_null(step.low)},
            {"high", text_or_null(step.high)},
            {"expected", text_or_null(step.expected)},
            {"verdict", word(step.verdict)},
            {"milliseconds", step.milliseconds},
            {"cause", text_or_null(step.cause)}};
}

static std::string dump(const Json &json) { return json.dump(-1, ' ', true, Json::error_handler_t::replace); }

std::string json(const Run &run) { return dump(to_json(run)); }

std::string json(const Run &run, const std::vector<Step> &steps)
{
    Json all = to_json(run);
    all["steps"] = Json::array();
    for (const Step &step : steps)
        all["steps"].push_back(to_json(step));
    return dump(all);
}

// What neither XML takes nor a spreadsheet shows, and a terminal obeys.
static std::string printable(const std::string &text)
{
    std::string printed;
    for (size_t at = 0; at < text.size();) {
        uint32_t character = 0;
        const size_t length = std::max<size_t>(utf8_character(text, at, character), 1);
        const bool is_blank = character == '\t' || character == '\n' || character == '\r';
        const bool is_control = (character < 0x20 && !is_blank) || (character >= 0x7F && character < 0xA0);
        const bool is_character =
            utf8_character(text, at, character) > 0 && character != 0xFFFE && character != 0xFFFF;
        if (is_character && !is_control)
            printed.append(text, at, length);
        else
            append_escaped(printed, std::string_view(text).substr(at, length));
        at += length;
    }
    return printed;
}

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

static const char CSV_HEAD[] =
    "run,unit,unit_source,plan,plan_digest,station,port,software,started,ended,run_verdict,failing,run_cause,"
    "number,began,phase,name,code,request,request_bytes,answer,answer_bytes,measured,measured_unit,low,"
    "high,expected,verdict,milliseconds,cause\r\n";

// A line for each step, the run in front of it; a run without steps has a line too.
static std::string csv_lines(const Run &run, const std::vector<Step> &steps)
{
    static constexpr size_t STEP_CELLS = 17;
    std::string head, lines;
    for (const std::string &text :
         {run.id, run.unit, std::string(run.unit_is_port ? "port" : "unit"), run.plan, run.plan_digest,
          run.station, run.port, run.software, time_text(run.started), run.ended ? time_text(*run.ended) : "",
          std::string(verdict_word(run)), run.failing, run.cause})
        head += (head.empty() ? "" : ",") + csv_cell(text);
    for (const Step &step : steps) {
        lines += head;
        for (const std::string &text :
             {std::to_string(step.number), number_text(step.began, 3), step.phase, step.name, step.code,
              step.request, step.request_bytes ? to_hex(*step.request_bytes) : "", step.answer,
              step.answer_bytes ? to_hex(*step.answer_bytes) : "", step.measured, step.unit, step.low,
              step.high, step.expected, std::string(word(step.verdict)), number_text(step.milliseconds, 3),
              step.cause})
            lines += "," + csv_cell(text);
        lines += "\r\n";
    }
    return steps.empty() ? head + std::string(STEP_CELLS, ',') + "\r\n" : lines;
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
        tests++;
        errors++;
        own = "    <testcase" + attribute("classname", run.plan) + attribute("name", "run") +
              attribute("time", "0") + ">\n" +
              junit_problem("error", run.cause.empty() ? verdict_word(run) : run.cause, verdict_word(run)) +
              "    </testcase>\n";
    }
    const double seconds = run.ended ? std::chrono::duration<double>(*run.ended - run.started).count() : 0;
    std::string text =
        "  <testsuite" + attribute("name", run.plan + " on " + run.unit) + attribute("id", run.id) +
        attribute("hostname", run.station) + attribute("timestamp", time_text(run.started)) +
        attribute("time", number_text(seconds, 3)) + attribute("tests", std::to_string(tests)) +
        attribute("failures", std::to_string(failures)) + attribute("errors", std::to_string(errors)) +
        attribute("skipped", "0") + ">\n    <properties>\n";
    const std::pair<const char *, std::string> properties[] = {
        {"run", run.id},
        {"unit", run.unit},
        {"unit_source", run.unit_is_port ? "port" : "unit"},
        {"plan", run.plan},
        {"plan_digest", run.plan_digest},
        {"station", run.station},
        {"port", run.port},
        {"software", run.software},
        {"started", time_text(run.started)},
        {"ended", run.ended ? time_text(*run.ended) : ""},
        {"verdict", verdict_word(run)},
        {"cause", run.cause}};
    for (const auto &[name, value] : properties)
        text += "      <property" + attribute("name", name) + attribute("value", value) + "/>\n";
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

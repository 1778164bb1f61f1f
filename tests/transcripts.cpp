// Plays the transcripts: what a station asks, and what is seen of it from outside. transcripts/README.md has
// the format.
//
//   transcripts FILE COPY         writes COPY, what FILE would be now, and compares the two
//   transcripts --faults FILE...  lets every call of every request fail, one in each run
#include <diag.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <set>
#include <sstream>

#include "core/shell.h"
#include "core/table.h"
#include "hwdec/detect.h"
#include "tests/canned/phone.h"

using strings = std::vector<std::string>;

namespace
{

struct request {
    strings with; // set-up lines for this one alone
    std::string line;
    bool goes_on; // on the phone as the request before has left it
};

struct scenario {
    strings setup;
    std::vector<request> requests;
};

} // namespace

static constexpr char HEX[] = "0123456789ABCDEF";
static constexpr std::string_view GENERATED = "<.:$!"; // how lines begin that are written here
static constexpr size_t LONG_RUN = 20;                 // of one byte, written as its number

static strings shown; // what log and tools' lines must hold one of to be written; none: all are

[[noreturn]] static void give_up(const std::string &why)
{
    fprintf(stderr, "%s: %s\n", what_is_tried.c_str(), why.c_str());
    exit(2);
}

// ---- texts

static std::string escaped(std::string_view text, bool quoted)
{
    std::string out;
    for (size_t i = 0; i < text.size();) {
        const char c = text[i];
        const auto byte = static_cast<unsigned char>(c);
        std::string one(1, c);
        if (c == '\\' || (quoted && c == '"'))
            one = std::string("\\") + c;
        else if (c == '\n')
            one = "\\n";
        else if (c == '\0')
            one = "\\0";
        else if (byte < ' ' || byte > '~')
            one = std::string("\\x") + HEX[byte / 16] + HEX[byte % 16];
        size_t times = std::min(text.find_first_not_of(c, i), text.size()) - i;
        if (times >= LONG_RUN) {
            out += "\\{" + one + '*' + std::to_string(times) + '}';
            i += times;
        } else {
            out += one;
            i++;
        }
    }
    return out;
}

static std::string quoted(std::string_view text) { return '"' + escaped(text, true) + '"'; }

static char escaped_byte(std::istream &in)
{
    const char c = static_cast<char>(in.get());
    if (c != '\\')
        return c;
    const char kind = static_cast<char>(in.get());
    if (kind != 'x')
        return kind == 'n' ? '\n' : kind == '0' ? '\0' : kind;
    const char digits[] = {static_cast<char>(in.get()), static_cast<char>(in.get()), '\0'};
    return static_cast<char>(strtol(digits, nullptr, 16));
}

// Reads "..." as escaped() writes it. False when none follows.
static bool read_text(std::istream &in, std::string *text)
{
    text->clear();
    if ((in >> std::ws).peek() != '"')
        return false;
    in.get();
    while (in.peek() != '"') {
        if (!in)
            give_up("a text without its end");
        if (in.peek() != '\\') {
            *text += static_cast<char>(in.get());
            continue;
        }
        in.get();
        if (in.peek() != '{') {
            in.unget();
            *text += escaped_byte(in);
            continue;
        }
        in.get();
        const char c = escaped_byte(in);
        size_t times = 0;
        in.get(); // *
        in >> times;
        in.get(); // }
        text->append(times, c);
    }
    in.get();
    return true;
}

// ---- set-up

static void set_node(canned_phone &phone, const std::string &path, canned_node node)
{
    phone.nodes[path] = std::move(node);
    for (size_t slash = path.rfind('/'); slash > 0; slash = path.rfind('/', slash - 1))
        if (!node_at(path.substr(0, slash)))
            phone.nodes[path.substr(0, slash)] = {{}, canned_node::FOLDER, 0};
}

static void set_up_tool(canned_phone &phone, std::string line)
{
    static const std::string ARROW = " => ";
    canned_tool tool;
    const size_t end = std::min(line.find(ARROW), line.size());
    tool.line = line.substr(0, end);
    std::istringstream in(line.substr(end));
    for (std::string word; in >> word;) {
        canned_tool::run run;
        int number = 0;
        if (word == "=>") {
            if (!read_text(in, &run.output))
                give_up("what does the tool print? " + line);
            tool.runs.push_back(run);
            continue;
        }
        if (tool.runs.empty() || !(in >> number))
            give_up("what of the tool? " + line);
        tool.runs.back().status = word == "exit"      ? number << 8
                                  : word == "stopped" ? number << 8 | 0x7F
                                                      : number;
    }
    if (tool.runs.empty())
        tool.runs.emplace_back();
    phone.tools.insert(phone.tools.begin(), tool); // the last word on a line counts
}

static void set_up(canned_phone &phone, const std::string &line)
{
    std::istringstream in(line);
    std::string what;
    std::string name;
    std::string text;
    in >> what;
    if (what == "tool")
        return set_up_tool(phone, line.substr(line.find("tool") + 5));
    if (what == "silent") {
        diag_quiet_flag = hw_dec_log_suppressed = 1;
        return;
    }
    if (what == "show")
        return shown.push_back(line.substr(line.find("show") + 5));
    if (!read_text(in, &name)) // a path with a blank
        in >> name;
    if (what == "node" && read_text(in, &text))
        set_node(phone, name, {text, canned_node::REGULAR, 0});
    else if (what == "folder")
        set_node(phone, name, {{}, canned_node::FOLDER, 0});
    else if (what == "null")
        set_node(phone, name, {{}, canned_node::NULL_DEVICE, 0});
    else if (what == "link" && in >> text)
        set_node(phone, name, {text, canned_node::LINK, 0});
    else if (what == "gone")
        phone.nodes[name] = {{}, canned_node::GONE, 0};
    else if (what == "property")
        phone.properties[name] = read_text(in, &text) ? std::optional(text) : std::nullopt;
    else if (what == "power")
        phone.power_state = static_cast<int32_t>(strtol(name.c_str(), nullptr, 0));
    else if (what == "fail") {
        const char *const *end = CANNED_CALL_NAMES + CANNED_CALLS;
        std::getline(in, text);
        std::string call = name + text;
        const size_t digit = call.find_first_of("0123456789");
        const int number = digit == std::string::npos ? 1 : atoi(call.c_str() + digit);
        call = call.substr(0, digit == std::string::npos ? digit : digit - 1);
        const char *const *found = std::find(CANNED_CALL_NAMES, end, call);
        if (found == end)
            give_up("no call to fail: " + line);
        phone.faults.push_back({static_cast<canned_call>(found - CANNED_CALL_NAMES), number});
    } else
        give_up("what is this? " + line);
}

// ---- requests

static uint16_t code_of(const request &asked)
{
    return static_cast<uint16_t>(strtol(asked.line.c_str() + asked.line.find("0x"), nullptr, 16));
}

static canned_answer send(const request &asked)
{
    std::istringstream in(asked.line.substr(asked.line.find("0x") + 6));
    std::string data;
    std::string word;
    int selector = 0;
    int length = -1;
    if (isdigit((in >> std::ws).peek()))
        in >> selector;
    read_text(in, &data);
    if (in >> word && (word != "length" || !(in >> length)))
        give_up("what is this? " + asked.line);
    return ask(code_of(asked), static_cast<uint8_t>(selector), data, length);
}

// Brings the phone to where request `number` is sent: those that it goes on from are sent on the way.
static void prepare(const scenario &of, size_t number)
{
    size_t first = number;
    while (of.requests[first].goes_on)
        first--;
    diag_quiet_flag = hw_dec_log_suppressed = 0;
    shown.clear();
    boot({});
    for (const std::string &line : of.setup)
        set_up(the_phone(), line);
    const size_t always_shown = shown.size();
    for (size_t i = first; i <= number; i++) {
        shown.resize(always_shown);
        what_is_tried.replace(what_is_tried.find(": ") + 2, std::string::npos, of.requests[i].line);
        for (const std::string &line : of.requests[i].with)
            set_up(the_phone(), line);
        if (i == number)
            return;
        send(of.requests[i]);
        close_left_open();
        the_phone().faults.clear();
    }
}

static std::string masked(std::string text, const std::string &what, const std::string &mask)
{
    for (size_t at = 0; !what.empty() && (at = text.find(what, at)) != std::string::npos; at += mask.size())
        text.replace(at, what.size(), mask);
    return text;
}

static std::string shown_line(std::string line)
{
    const bool ends = !line.empty() && line.back() == '\n';
    if (ends)
        line.pop_back();
    return masked(escaped(line, false), std::string(PATH_PREFIX), "{PATH} ") +
           (ends ? "" : " (no line feed)");
}

static std::string shown_answer(const canned_answer &answer, uint16_t code)
{
    if (answer.none)
        return "< nothing";
    std::string out = "< " + std::to_string(answer.bytes.size());
    if (answer.code != code) {
        char text[16];
        snprintf(text, sizeof text, " as 0x%04X", answer.code);
        out += text;
    }
    if (answer.bytes.size() <= 7)
        return out;
    out += ": " + quoted(answer.text);
    std::string behind = answer.bytes.substr(7 + answer.length);
    behind.resize(behind.find_last_not_of('\0') + 1);
    return out + (behind.empty() ? "" : " then " + quoted(behind));
}

static void show_changes(const canned_phone &before, strings &out)
{
    for (const auto &[path, now] : the_phone().nodes) {
        auto changed = before.nodes.find(path);
        const canned_node *was = changed != before.nodes.end() ? &changed->second : healthy_node(path);
        if (was && was->kind == canned_node::GONE)
            was = nullptr;
        char mode[16];
        snprintf(mode, sizeof mode, " new 0%o ", now.mode);
        const std::string name = "! " + escaped(path, false);
        if (now.kind == canned_node::GONE && was)
            out.push_back(name + " gone");
        else if (now.kind == canned_node::REGULAR && (!was || was->content != now.content))
            out.push_back(name + (was ? ' ' + quoted(was->content) + " -> " : mode) + quoted(now.content));
    }
    for (const auto &[key, value] : the_phone().properties) {
        auto was = before.properties.find(key);
        if (was == before.properties.end() || was->second != value)
            out.push_back("! property " + key + ' ' + quoted(*value));
    }
}

static void show_line(const char *kind, const std::string &line, strings &out)
{
    auto held = [&](const std::string &text) { return line.find(text) != std::string::npos; };
    if (shown.empty() || std::any_of(shown.begin(), shown.end(), held))
        out.push_back(kind + shown_line(line));
}

// What is seen of a request from outside.
static strings play(const scenario &of, size_t number)
{
    strings out;
    prepare(of, number);
    const canned_phone before = the_phone();
    const request &asked = of.requests[number];
    const canned_answer answer = send(asked);
    const canned_record &record = the_record();
    out.push_back(shown_answer(answer, code_of(asked)));
    for (size_t i = 0; i < record.log.size(); i++)
        show_line(i < answer.logged ? ". " : ": ", record.log[i], out);
    for (const std::string &line : record.lines)
        show_line("$ ", line + '\n', out);
    for (const std::string &deed : record.deeds)
        out.push_back("! " + deed);
    if (record.microseconds > 0)
        out.push_back("! waits " + std::to_string(record.microseconds / 1000) + " ms");
    show_changes(before, out);
    for (const std::string &left : close_left_open())
        out.push_back("! leaves open " + shown_line(left + '\n'));
    if (code_of(asked) == 0x0117) { // what it writes is where the request lies
        const std::string address = std::to_string(static_cast<int>(reinterpret_cast<intptr_t>(answer.data)));
        for (std::string &line : out)
            line = masked(line, address, "{address}");
    }
    return out;
}

static strings table()
{
    const diagpkt_table &all = diag_command_table;
    char text[128];
    snprintf(text, sizeof text, "< %d entries, subsystem %d, command %d, delay %d, processor %d", all.count,
             all.subsystem, all.command, all.delay, all.processor);
    strings out = {text};
    for (int i = 0; i < all.count; i++) {
        snprintf(text, sizeof text, "< 0x%04X-0x%04X", all.entries[i].low, all.entries[i].high);
        text[all.entries[i].low == all.entries[i].high ? 8 : sizeof text - 1] = '\0';
        out.emplace_back(text);
    }
    return out;
}

// ---- files

// Reads a transcript. `each` gets every line that stays, and with a request the scenario that it ends for
// now.
template <typename Each> static void read_transcript(const std::string &path, Each each)
{
    std::ifstream file(path);
    if (!file)
        give_up(path + ": no such transcript");
    scenario now;
    strings shared;
    strings with;
    bool titled = false;
    int number = 0;
    for (std::string line; std::getline(file, line);) {
        what_is_tried = path + ':' + std::to_string(++number) + ": " + line;
        const size_t begin = std::min(line.find_first_not_of(' '), line.size());
        const std::string text = line.substr(begin);
        if (!text.empty() && GENERATED.find(text[0]) != std::string_view::npos)
            continue;
        const scenario *asked = nullptr;
        if (text[0] == '=') {
            now = {shared, {}};
            titled = true;
        } else if (text[0] == '>' && text != "> table") {
            now.requests.push_back({with, text, text[1] == '>'});
            with.clear();
            asked = &now;
        } else if (text.rfind("with ", 0) == 0) {
            with.push_back(text.substr(5));
        } else if (!text.empty() && text[0] != '#' && text[0] != '>') {
            now.setup.push_back(text);
            if (!titled)
                shared.push_back(text);
        }
        each(line, asked);
    }
}

static int compare(const std::string &path, const std::string &copy)
{
    std::ofstream out(copy);
    read_transcript(path, [&](const std::string &line, const scenario *asked) {
        out << line << '\n';
        if (asked || line == "> table")
            for (const std::string &seen : asked ? play(*asked, asked->requests.size() - 1) : table())
                out << seen << '\n';
    });
    out.close();
    if (system(("diff -u '" + path + "' '" + copy + "'").c_str()) == 0)
        return 0;
    printf("+ is what the service does now. If that is meant: script/transcripts, and read what git diff "
           "shows.\n");
    return 1;
}

// Runs a request for every call that it makes, in which that one fails. What comes back is judged by ask().
static void fail_each(const scenario &of, size_t number, int (&failed)[CANNED_CALLS])
{
    prepare(of, number);
    const canned_answer whole = send(of.requests[number]);
    int counts[CANNED_CALLS];
    std::copy_n(the_record().counts, +CANNED_CALLS, counts);
    for (canned_call log :
         {FAIL_LOG, FAIL_LOG_NONE, FAIL_LOG_PART}) // all lines are one routine's; a detection has hundreds
        counts[log] = std::min(counts[log], 3);
    const uint16_t code = code_of(of.requests[number]);
    for (int call = 0; call < CANNED_CALLS; call++) {
        for (int k = 1; k <= counts[call]; k++) {
            prepare(of, number);
            what_is_tried += std::string(", failing ") + CANNED_CALL_NAMES[call] + ' ' + std::to_string(k);
            the_phone().faults.push_back({static_cast<canned_call>(call), k});
            const canned_answer answer = send(of.requests[number]);
            failed[call]++;
            require(answer.none == (whole.none || call == FAIL_RESPONSE),
                    "an answer, unless there is no buffer");
            if (call == FAIL_FSYNC || call >= FAIL_MALLOC)
                require(answer.bytes == whole.bytes, "the log and the flash's caches change no answer");
            require(close_left_open().size() <= may_leave_open(code),
                    "nothing stays open but what is meant to");
        }
    }
}

static int fail_all(char **paths)
{
    int failed[CANNED_CALLS] = {};
    std::set<const diagpkt_entry *> asked_entries;
    std::set<uint16_t> codes;
    int requests = 0;
    for (; *paths; paths++) {
        read_transcript(*paths, [&](const std::string &, const scenario *asked) {
            if (!asked)
                return;
            requests++;
            codes.insert(code_of(asked->requests.back()));
            fail_each(*asked, asked->requests.size() - 1, failed);
        });
    }
    printf("%d requests of %zu codes, failed:", requests, codes.size());
    int without = 0;
    for (int call = 0; call < CANNED_CALLS; call++)
        printf(" %s %d", CANNED_CALL_NAMES[call], failed[call]);
    printf("\n");
    for (int i = 0; i < diag_command_table.count; i++) {
        for (int code = diag_command_table.entries[i].low; code <= diag_command_table.entries[i].high;
             code++) {
            if (codes.count(static_cast<uint16_t>(code)) == 0) {
                printf("0x%04X has no request in the transcripts\n", code);
                without++;
            }
        }
    }
    return without > 0;
}

int main(int count, char **arguments)
{
    if (count < 3) {
        fprintf(stderr, "usage: transcripts FILE COPY | --faults FILE...\n");
        return 2;
    }
    if (strcmp(arguments[1], "--faults") == 0)
        return fail_all(arguments + 2);
    return compare(arguments[1], arguments[2]);
}

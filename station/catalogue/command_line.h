// A command line: what may stand on it, and what was typed. The library behind it takes a compiler longer
// than all else in the station, so command_line.cpp alone knows it.
#pragma once

#include <memory>
#include <string>
#include <vector>

namespace CLI
{
class App;
}

namespace station
{

struct HelpAsked {
    std::string text;
};

// What is taken is written as a usage line has it:
//   "FILE"            by its place              "NUMBER..."     all that is left
//   "--record PATH"   an option with a value    "--port PORT..."  which may be given again
//   "--json"          a flag                    "--words [NAME]"  with or without its value
// Where it goes keeps what it held unless it is given, and has to live as long as the command line.
class CommandLine
{
  public:
    // The name stands in the help's first lines and before what is wrong.
    CommandLine(const std::string &name, const std::string &does);
    CommandLine(const CommandLine &) = delete;
    CommandLine &operator=(const CommandLine &) = delete;
    ~CommandLine();

    struct Range {
        int low, high;
    };
    using Words = std::vector<std::string>;

    void takes(const std::string &form, bool &flag, const std::string &help);
    void takes(const std::string &form, std::string &value, const std::string &help);
    void takes(const std::string &form, std::string &value, const Words &one_of, const std::string &help);
    void takes(const std::string &form, Words &values, const std::string &help);
    void takes(const std::string &form, int &value, Range range, const std::string &help);
    void takes(const std::string &form, double &seconds, const std::string &help); // 0.001 to 1e6
    // The line is wrong without it.
    void needs(const std::string &form, std::string &value, const std::string &help);
    void needs(const std::string &form, Words &values, const std::string &help);

    // What is taken from here on stands below a heading of its own; at most one of it may be given.
    void group(const std::string &title);
    void choice(const std::string &title, const std::string &help);

    void describe(const std::string &name, const std::string &help); // other words for what is taken
    void footer(const std::string &text);
    void version(const std::string &text); // what --version prints

    // Reads all words. Throws HelpAsked, and UsageError, naming what was probably meant.
    void parse(Words words);
    // Reads the options before the first word that is none, and returns what begins there. Throws as parse.
    Words parse_front(Words words);

    [[nodiscard]] const std::string &name() const;
    // What was typed for "--port" or "FILE", a word for each time; empty when it was not given.
    [[nodiscard]] const Words &given(const std::string &name) const;
    // "; did you mean --port?", or nothing.
    [[nodiscard]] std::string meant_by(const std::string &mistyped) const;

  private:
    void read(Words words);

    std::unique_ptr<CLI::App> all_;
    CLI::App *group_; // which what is taken goes to
};

} // namespace station

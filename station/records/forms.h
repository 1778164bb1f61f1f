// Runs for other programs, made of the plain data: JUnit's XML, CSV, JSON lines.
#pragma once

#include "station/records/run.h"

#include <cstdio>
#include <string>
#include <vector>

namespace station::records
{

// On one line, in ASCII, under the columns' names; bytes as hexadecimal digits, decimals as texts. With its
// steps: as "steps".
std::string json(const Run &run);
std::string json(const Run &run, const std::vector<Step> &steps);

// As CSV's or XML's text. Control characters stand there as \xNN.
std::string csv_cell(const std::string &text);
std::string xml_text(const std::string &text);

enum class Form { junit, csv, jsonl };

// Writes runs to a file that is the caller's, who looks in the end whether it has taken everything.
class Export
{
  public:
    Export(Form form, FILE *file);
    void add(const Run &run, const std::vector<Step> &steps);
    void end();

  private:
    void write(const std::string &text) { std::fwrite(text.data(), 1, text.size(), file_); }

    Form form_;
    FILE *file_;
};

} // namespace station::records

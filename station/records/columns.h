// The columns of runs and of steps, said once: tables, exports and queries are made of them.
#pragma once

#include "station/records/run.h"

#include <cstdint>
#include <optional>
#include <string>
#include <variant>
#include <vector>

namespace station::records
{

enum class Kind { text, number, time, bytes };

// What a column holds; monostate is NULL. Times are as time_text writes them; bytes are a text too.
using Value = std::variant<std::monostate, std::string, int64_t, double>;

struct Column {
    const char *name;
    Kind kind;
    Value value;
};

// In the tables' order, which is that of all exports. A step's `run` is not among them.
std::vector<Column> columns(const Run &run);
std::vector<Column> columns(const Step &step);

// From a row's texts in the same order, bytes as hexadecimal digits.
using Texts = std::vector<std::optional<std::string>>;
Run run_of(const Texts &texts);
Step step_of(const Texts &texts);

} // namespace station::records

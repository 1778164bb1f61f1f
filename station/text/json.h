// What the station says to programs, as JSON. One file alone knows the library that writes and reads it: its
// headers take more time to compile than all that uses this.
#pragma once

#include <cstdint>
#include <initializer_list>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <type_traits>
#include <utility>
#include <variant>
#include <vector>

namespace station
{

// A JSON value. An object keeps its members in the order that they were put in.
class Json
{
  public:
    using Member = std::pair<std::string, Json>;

    Json() = default; // null
    Json(std::nullptr_t) {}
    template <typename Number, std::enable_if_t<std::is_arithmetic_v<Number>, int> = 0>
    Json(Number number) : value_(widest(number))
    {
    }
    Json(std::string text) : value_(std::move(text)) {}
    Json(const char *text) : value_(std::string(text)) {}
    Json(const std::vector<std::string> &texts) : value_(std::vector<Json>(texts.begin(), texts.end())) {}
    Json(std::initializer_list<Member> members) : value_(std::vector<Member>(members)) {} // an object
    static Json array() { return std::vector<std::string>(); }

    // The member of an object, of null too, which becomes one; null when it is new.
    Json &operator[](std::string_view name);

    // Of an array, of null too, which becomes one.
    void push_back(Json element);

    // In ASCII, for what a phone answers may hold characters that a terminal obeys; bytes that are no UTF-8
    // are replaced. `indent`: blanks for each level, a line for each value; -1 for all in one line.
    [[nodiscard]] std::string dump(int indent = -1) const;

  private:
    friend struct JsonLibrary;

    template <typename Number> static auto widest(Number number)
    {
        if constexpr (std::is_same_v<Number, bool>)
            return number;
        else if constexpr (std::is_floating_point_v<Number>)
            return static_cast<double>(number);
        else if constexpr (std::is_signed_v<Number>)
            return static_cast<int64_t>(number);
        else
            return static_cast<uint64_t>(number);
    }

    std::variant<std::nullptr_t, bool, int64_t, uint64_t, double, std::string, std::vector<Json>,
                 std::vector<Member>>
        value_;
};

// The members of an object whose values are texts, every one; nothing when `json` is something else.
[[nodiscard]] std::optional<std::map<std::string, std::string>> texts_of_json(const std::string &json);

} // namespace station

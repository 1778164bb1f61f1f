// What the station says to programs, as JSON. One file alone knows the library that writes and reads it: its
// headers take more time to compile than all that uses this.
#pragma once

#include <cstdint>
#include <initializer_list>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <type_traits>
#include <utility>
#include <vector>

namespace station
{

// A JSON value. An object keeps its members in the order that they were put in.
class Json
{
  public:
    using Member = std::pair<const char *, Json>;

    Json(std::nullptr_t = nullptr);
    template <typename Type, std::enable_if_t<std::is_arithmetic_v<Type>, int> = 0>
    Json(Type number) : Json(widest(number))
    {
    }
    Json(std::string text);
    Json(const char *text);
    Json(const std::vector<std::string> &texts);
    Json(std::initializer_list<Member> members); // an object
    static Json array();
    Json(const Json &other);
    Json(Json &&other) noexcept;
    Json &operator=(Json other) noexcept;
    ~Json();

    // The member of an object, of null too, which becomes one; null when it is new.
    Json &operator[](std::string_view name);

    // Of an array, of null too, which becomes one.
    void push_back(Json element);

    // In ASCII, for what a phone answers may hold characters that a terminal obeys; bytes that are no UTF-8
    // are replaced. `indent`: blanks for each level, a line for each value; -1 for all in one line.
    [[nodiscard]] std::string dump(int indent = -1) const;

  private:
    friend struct JsonLibrary;
    struct Held;
    struct Number { // one kind of each, so that no conversion is a matter of chance
        enum { BOOLEAN, SIGNED, UNSIGNED, REAL } kind;
        int64_t whole;
        double real;
    };

    Json(Number number);

    template <typename Type> static Number widest(Type number)
    {
        if constexpr (std::is_floating_point_v<Type>)
            return {Number::REAL, 0, static_cast<double>(number)};
        else
            return {std::is_same_v<Type, bool> ? Number::BOOLEAN
                    : std::is_signed_v<Type>   ? Number::SIGNED
                                               : Number::UNSIGNED,
                    static_cast<int64_t>(number), 0};
    }

    std::unique_ptr<Held> held_;
};

// The members of an object whose values are texts, every one; nothing when `json` is something else.
[[nodiscard]] std::optional<std::map<std::string, std::string>> texts_of_json(const std::string &json);

} // namespace station

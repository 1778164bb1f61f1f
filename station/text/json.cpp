#include "station/text/json.h"

#include <algorithm>
#include <nlohmann/json.hpp>
#include <variant>

namespace station
{

using Elements = std::vector<Json>;
using Members = std::vector<std::pair<std::string, Json>>;

struct Json::Held {
    std::variant<std::nullptr_t, bool, int64_t, uint64_t, double, std::string, Elements, Members> value;
};

// The library's value of one of ours.
struct JsonLibrary {
    using Value = nlohmann::ordered_json;

    static Value value(const Json &json)
    {
        return std::visit([](const auto &held) { return value_of(held); }, json.held_->value);
    }

  private:
    template <typename Held> static Value value_of(const Held &held) { return held; }

    static Value value_of(const Elements &elements)
    {
        Value array = Value::array();
        for (const Json &element : elements)
            array.push_back(value(element));
        return array;
    }

    static Value value_of(const Members &members)
    {
        Value object = Value::object();
        for (const auto &[name, member] : members)
            object[name] = value(member);
        return object;
    }
};

Json::Json(std::nullptr_t) : held_(new Held{nullptr}) {}
Json::Json(std::string text) : held_(new Held{std::move(text)}) {}
Json::Json(const char *text) : held_(new Held{std::string(text)}) {}
Json::Json(const std::vector<std::string> &texts) : held_(new Held{Elements(texts.begin(), texts.end())}) {}
Json::Json(std::initializer_list<Member> members) : held_(new Held{Members(members.begin(), members.end())})
{
}
Json Json::array() { return std::vector<std::string>(); }
Json::Json(const Json &other) : held_(new Held(*other.held_)) {}
Json::Json(Json &&other) noexcept = default;
Json &Json::operator=(Json other) noexcept
{
    held_.swap(other.held_);
    return *this;
}
Json::~Json() = default;

Json::Json(Number number) : held_(new Held)
{
    switch (number.kind) {
    case Number::BOOLEAN:
        held_->value = number.whole != 0;
        break;
    case Number::SIGNED:
        held_->value = number.whole;
        break;
    case Number::UNSIGNED:
        held_->value = static_cast<uint64_t>(number.whole);
        break;
    case Number::REAL:
        held_->value = number.real;
        break;
    }
}

Json &Json::operator[](std::string_view name)
{
    if (std::holds_alternative<std::nullptr_t>(held_->value))
        held_->value = Members();
    auto &members = std::get<Members>(held_->value);
    const auto found = std::find_if(members.begin(), members.end(),
                                    [&](const auto &member) { return member.first == name; });
    return found == members.end() ? members.emplace_back(name, Json()).second : found->second;
}

void Json::push_back(Json element)
{
    if (std::holds_alternative<std::nullptr_t>(held_->value))
        held_->value = Elements();
    std::get<Elements>(held_->value).push_back(std::move(element));
}

std::string Json::dump(int indent) const
{
    return JsonLibrary::value(*this).dump(indent, ' ', true, JsonLibrary::Value::error_handler_t::replace);
}

std::optional<std::map<std::string, std::string>> texts_of_json(const std::string &json)
{
    const JsonLibrary::Value parsed = JsonLibrary::Value::parse(json, nullptr, false);
    if (!parsed.is_object())
        return {};
    std::map<std::string, std::string> texts;
    for (const auto &[name, value] : parsed.items()) {
        if (!value.is_string())
            return {};
        texts[name] = value.get<std::string>();
    }
    return texts;
}

} // namespace station

#include "station/text/json.h"

#include <algorithm>
#include <nlohmann/json.hpp>

namespace station
{

// The library's value of one of ours.
struct JsonLibrary {
    using Value = nlohmann::ordered_json;

    static Value value(const Json &json)
    {
        return std::visit([](const auto &held) { return value_of(held); }, json.value_);
    }

  private:
    template <typename Held> static Value value_of(const Held &held) { return held; }

    static Value value_of(const std::vector<Json> &elements)
    {
        Value array = Value::array();
        for (const Json &element : elements)
            array.push_back(value(element));
        return array;
    }

    static Value value_of(const std::vector<Json::Member> &members)
    {
        Value object = Value::object();
        for (const auto &[name, member] : members)
            object[name] = value(member);
        return object;
    }
};

Json &Json::operator[](std::string_view name)
{
    if (std::holds_alternative<std::nullptr_t>(value_))
        value_ = std::vector<Member>();
    auto &members = std::get<std::vector<Member>>(value_);
    const auto found = std::find_if(members.begin(), members.end(),
                                    [&](const Member &member) { return member.first == name; });
    return found == members.end() ? members.emplace_back(name, Json()).second : found->second;
}

void Json::push_back(Json element)
{
    if (std::holds_alternative<std::nullptr_t>(value_))
        value_ = std::vector<Json>();
    std::get<std::vector<Json>>(value_).push_back(std::move(element));
}

std::string Json::dump(int indent) const
{
    return JsonLibrary::value(*this).dump(indent, ' ', true, JsonLibrary::Value::error_handler_t::replace);
}

std::optional<std::map<std::string, std::string>> texts_of_json(const std::string &json)
{
    const nlohmann::json parsed = nlohmann::json::parse(json, nullptr, false);
    if (!parsed.is_object())
        return {};
    std::map<std::string, std::string> texts;
    for (const auto &[name, value] : parsed.items()) {
        if (!value.is_string())
            return {};
        texts.emplace(name, value.get<std::string>());
    }
    return texts;
}

} // namespace station

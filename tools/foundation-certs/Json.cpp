#include "Json.hpp"

#include "Text.hpp"

#include <nlohmann/json.hpp>

#include <algorithm>
#include <cstddef>

namespace foundation::tools {

namespace {

/// Whether the text needs no escapes, as almost all texts.
bool isPlain(std::string_view text)
{
    return std::all_of(text.begin(), text.end(), [](char byte) {
        return byte >= ' ' && byte <= '~' && byte != '"' && byte != '\\';
    });
}

} // namespace

JsonObject::JsonObject()
{
    constexpr std::size_t sizeOfMost = 2048;
    members.reserve(sizeOfMost);
}

void JsonObject::addText(std::string_view name, std::string_view value)
{
    addName(name);
    append(value);
}

void JsonObject::addBoolean(std::string_view name, bool value)
{
    addName(name);
    members += value ? "true" : "false";
}

void JsonObject::addTexts(std::string_view name, std::vector<std::string> const& values)
{
    addName(name);
    appendAll(values);
}

void JsonObject::addObjects(std::string_view name, std::vector<JsonObject> const& values)
{
    addName(name);
    appendAll(values);
}

std::string JsonObject::text() const
{
    return "{" + members + "}";
}

void JsonObject::addName(std::string_view name)
{
    if (!members.empty()) {
        members += ',';
    }
    append(name);
    members += ':';
}

void JsonObject::append(std::string_view value)
{
    if (isPlain(value)) {
        members += '"';
        members += value;
        members += '"';
    } else {
        members += nlohmann::json(validUTF8(value)).dump();
    }
}

void JsonObject::append(JsonObject const& value)
{
    members += value.text();
}

template <class Value>
void JsonObject::appendAll(std::vector<Value> const& values)
{
    members += '[';
    for (auto const& value : values) {
        if (&value != &values.front()) {
            members += ',';
        }
        append(value);
    }
    members += ']';
}

JsonObject newRecord(std::string const& subcommand)
{
    JsonObject record;
    record.addText("schema", "foundation-certs/" + subcommand + "/1");
    return record;
}

std::string jsonLine(JsonObject const& record)
{
    return record.text() + "\n";
}

} // namespace foundation::tools

#pragma once

#include <string>
#include <string_view>
#include <vector>

/// The output of --json: one object for each line. docs/foundation-certs-json.md is its description.
namespace foundation::tools {

/// A JSON object that is written member by member. It is only text, because `inspect` makes very many.
class JsonObject
{
public:
    JsonObject();

    /// Adds a text. Escapes what is not UTF-8.
    void addText(std::string_view name, std::string_view value);
    template <class Integer>
    void addNumber(std::string_view name, Integer value)
    {
        addName(name);
        members += std::to_string(value);
    }
    void addBoolean(std::string_view name, bool value);
    void addTexts(std::string_view name, std::vector<std::string> const& values);
    void addObjects(std::string_view name, std::vector<JsonObject> const& values);

    /// Returns the whole object, without a line end.
    std::string text() const;

private:
    void addName(std::string_view name);
    void append(std::string_view value);
    void append(JsonObject const& value);
    template <class Value>
    void appendAll(std::vector<Value> const& values);

    std::string members;
};

/// Starts an object of the subcommand: {"schema": "foundation-certs/inspect/1"}.
JsonObject newRecord(std::string const& subcommand);

/// Returns the object as one line.
std::string jsonLine(JsonObject const& record);

} // namespace foundation::tools

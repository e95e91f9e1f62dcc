#include "Json.hpp"

#include "Text.hpp"

namespace foundation::tools {

namespace {

// NOLINTNEXTLINE(misc-no-recursion): as deep as the records of the subcommands
void makeValid(Json& value)
{
    if (value.is_string()) {
        auto& text = value.get_ref<std::string&>();
        text = validUTF8(text);
    } else if (value.is_structured()) {
        for (auto& member : value) {
            makeValid(member);
        }
    }
}

} // namespace

Json newRecord(std::string const& subcommand)
{
    return {{"schema", "foundation-certs/" + subcommand + "/1"}};
}

std::string jsonLine(Json record)
{
    makeValid(record);
    return record.dump() + "\n";
}

} // namespace foundation::tools

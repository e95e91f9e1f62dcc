#include "tools/JsonLines.hpp"

#include "support/Text.hpp"

#include <gtest/gtest.h>

#include <map>
#include <sstream>

namespace foundation::test {

namespace {

struct Member
{
    std::string type;
    bool isOptional = false;
};

/// Reads the rows "| `name` | type | ... |" of the subcommand's table.
std::map<std::string, Member> documentedMembers(std::string const& subcommand)
{
    std::map<std::string, Member> members;
    std::istringstream page(contentOfFile(JSON_PAGE));
    bool isInSection = false;
    for (std::string line; std::getline(page, line);) {
        if (beginsWith(line, "## ")) {
            isInSection = line == "## " + subcommand;
        } else if (isInSection && beginsWith(line, "| `")) {
            auto const nameEnd = line.find('`', 3);
            auto const typeBegin = line.find("| ", nameEnd) + 2;
            auto const type = line.substr(typeBegin, line.find(" |", typeBegin) - typeBegin);
            members[line.substr(3, nameEnd - 3)] = {
                type.substr(0, type.find(',')), contains(type, "optional")};
        }
    }
    return members;
}

void expectDocumented(nlohmann::json const& record, std::string const& subcommand)
{
    static std::map<std::string, std::map<std::string, Member>> pages;
    auto const [page, isNew] = pages.try_emplace(subcommand);
    if (isNew) {
        page->second = documentedMembers(subcommand);
    }
    auto const& members = page->second;
    EXPECT_EQ(record.value("schema", ""), "foundation-certs/" + subcommand + "/1");
    for (auto const& [name, value] : record.items()) {
        auto const member = members.find(name);
        ASSERT_TRUE(member != members.end())
            << subcommand << " has a member that is not documented: " << name;
        EXPECT_EQ(value.type_name(), member->second.type) << name;
    }
    for (auto const& [name, member] : members) {
        EXPECT_TRUE(member.isOptional || record.contains(name)) << subcommand << " lacks " << name;
    }
}

} // namespace

std::vector<nlohmann::json> jsonLines(std::string const& output, std::string const& subcommand)
{
    std::vector<nlohmann::json> records;
    std::istringstream lines(output);
    for (std::string line; std::getline(lines, line);) {
        records.push_back(nlohmann::json::parse(line));
        expectDocumented(records.back(), subcommand);
    }
    return records;
}

} // namespace foundation::test

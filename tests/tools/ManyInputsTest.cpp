#include "tools/FoundationCerts.hpp"
#include "tools/JsonLines.hpp"

using namespace foundation::test;

namespace {

using ManyInputs = FoundationCerts;

} // namespace

TEST_F(ManyInputs, KeepOrderOfInputs)
{
    std::string list;
    std::vector<std::string> sources;
    for (int number = 0; number < 200; ++number) {
        sources.push_back(write(std::to_string(number) + ".pem", number % 3 == 0 ? root.pem() : leaf.pem()));
        list += sources.back() + "\n";
    }
    auto const run = foundationCerts({"inspect", "--json", "--from", "-", "--jobs", "8"}, list);

    EXPECT_EQ(run.exitStatus, 0);
    auto const records = jsonLines(run.output);
    ASSERT_EQ(records.size(), sources.size());
    for (std::size_t number = 0; number < records.size(); ++number) {
        EXPECT_EQ(records[number].at("source"), sources[number]);
    }
}

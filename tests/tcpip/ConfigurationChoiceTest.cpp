// WMI lists every configuration with an adapter's hardware address; a virtual adapter or
// a miniport without IP may come first. Changes go to the one with IP enabled.
#include <gtest/gtest.h>

#include <string>
#include <utility>
#include <vector>

#include "tcpip/ConfigurationChoice.h"

using velmora::ConfigurationChoice;

namespace {

// The path chosen from rows offered in order, as the WMI query's rows are, or "" when none.
std::wstring choose(const std::vector<std::pair<std::wstring, bool>>& rows, int* offered) {
    ConfigurationChoice choice;
    *offered = 0;
    for (const auto& row : rows) {
        ++*offered;
        if (choice.offer(row.first, row.second)) break;
    }
    return choice.found() ? choice.chosen() : L"";
}

}  // namespace

TEST(ConfigurationChoice, IpEnabledConfigurationWinsOverEarlierOnes) {
    int offered = 0;
    EXPECT_EQ(choose({{L"virtual", false}, {L"miniport", false}, {L"real", true}, {L"late", true}},
                     &offered),
              L"real");
    EXPECT_EQ(offered, 3);  // the rest of the rows need not be read
    EXPECT_EQ(choose({{L"only", false}, {L"second", false}}, &offered), L"only");
    EXPECT_EQ(offered, 2);
    EXPECT_EQ(choose({}, &offered), L"");
}

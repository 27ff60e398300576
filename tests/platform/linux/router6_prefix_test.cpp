// The /64 prefixes of a delegated prefix, at the edges of the 128-bit arithmetic.
#include "tarnnetwork.h"

#include <gtest/gtest.h>

#include <climits>

namespace {

using tarn::network::ipv6::router::Router6Prefix;

struct EnumCase {
    const char* name;
    const char* address;
    int length;
    size_t count;
    const char* first;
    const char* second;
    const char* last;
};

void PrintTo(const EnumCase& c, std::ostream* os) { *os << c.name; }

class Enum : public ::testing::TestWithParam<EnumCase> {};

TEST_P(Enum, Prefixes) {
    const EnumCase& c = GetParam();
    std::vector<std::string> prefixes = Router6Prefix::EnumPrefix64(c.address, c.length);
    ASSERT_EQ(prefixes.size(), c.count);
    if (c.count == 0) return;
    EXPECT_EQ(prefixes.front(), c.first);
    if (c.count > 1) {
        EXPECT_EQ(prefixes[1], c.second);
    }
    EXPECT_EQ(prefixes.back(), c.last);
}

INSTANTIATE_TEST_SUITE_P(
    Cases, Enum,
    ::testing::Values(
        EnumCase{"Zero", "2001:db8::", 0, 1024, "::", "0:0:0:1::", "0:0:0:3ff::"},
        EnumCase{"One", "ffff::", 1, 1024, "8000::", "8000:0:0:1::", "8000:0:0:3ff::"},
        EnumCase{"FortySevenHostBitSet", "2001:db8:1201::", 47, 1024,
                 "2001:db8:1200::", "2001:db8:1200:1::", "2001:db8:1200:3ff::"},
        EnumCase{"FortyEight", "2001:db8:1200::", 48, 1024, "2001:db8:1200::", "2001:db8:1200:1::", "2001:db8:1200:3ff::"},
        EnumCase{"FiftyFourFillsTheBound", "2001:db8:1200::", 54, 1024,
                 "2001:db8:1200::", "2001:db8:1200:1::", "2001:db8:1200:3ff::"},
        EnumCase{"FiftyFiveUnderTheBound", "2001:db8:1200::", 55, 512,
                 "2001:db8:1200::", "2001:db8:1200:1::", "2001:db8:1200:1ff::"},
        EnumCase{"FiftySixHostBitsSet", "2001:db8:1234:5678::1", 56, 256,
                 "2001:db8:1234:5600::", "2001:db8:1234:5601::", "2001:db8:1234:56ff::"},
        EnumCase{"SixtyThree", "2001:db8:0:3::", 63, 2, "2001:db8:0:2::", "2001:db8:0:3::", "2001:db8:0:3::"},
        EnumCase{"SixtyFourGivesItself", "2001:db8::1", 64, 1, "2001:db8::", "", "2001:db8::"},
        EnumCase{"LastOfTheAddressSpace", "ffff:ffff:ffff:ff00::", 56, 256,
                 "ffff:ffff:ffff:ff00::", "ffff:ffff:ffff:ff01::", "ffff:ffff:ffff:ffff::"},
        EnumCase{"LastSixtyFour", "ffff:ffff:ffff:ffff:ffff::", 64, 1, "ffff:ffff:ffff:ffff::", "", "ffff:ffff:ffff:ffff::"},
        EnumCase{"SixtyFive", "2001:db8::", 65, 0, "", "", ""}, EnumCase{"MinusOne", "2001:db8::", -1, 0, "", "", ""},
        EnumCase{"MostNegative", "2001:db8::", INT_MIN, 0, "", "", ""},
        EnumCase{"OneTwentyEight", "2001:db8::", 128, 0, "", "", ""}, EnumCase{"IPv4", "192.0.2.0", 24, 0, "", "", ""},
        EnumCase{"WithLength", "2001:db8::/48", 48, 0, "", "", ""}, EnumCase{"Empty", "", 48, 0, "", "", ""}),
    [](const ::testing::TestParamInfo<EnumCase>& info) { return std::string(info.param.name); });

}  // namespace

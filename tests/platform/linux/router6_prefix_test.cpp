// The /64 prefixes of a delegated prefix, at the edges of the 128-bit arithmetic.
#include "tarnnetwork.h"

#include <gtest/gtest.h>

#include <tuple>

namespace {

using tarn::network::ipv6::router::Router6Prefix;

TEST(EnumPrefix64, Edges) {
    // address, length, count, first, second, last
    using Row = std::tuple<const char*, int, size_t, const char*, const char*, const char*>;
    const Row rows[] = {
        {"2001:db8::", 0, 1024, "::", "0:0:0:1::", "0:0:0:3ff::"},
        {"2001:db8:1201::", 47, 1024, "2001:db8:1200::", "2001:db8:1200:1::", "2001:db8:1200:3ff::"},
        {"2001:db8:1200::", 54, 1024, "2001:db8:1200::", "2001:db8:1200:1::", "2001:db8:1200:3ff::"},
        {"2001:db8:1200::", 55, 512, "2001:db8:1200::", "2001:db8:1200:1::", "2001:db8:1200:1ff::"},
        {"2001:db8:1234:5678::1", 56, 256, "2001:db8:1234:5600::", "2001:db8:1234:5601::", "2001:db8:1234:56ff::"},
        {"2001:db8:0:3::", 63, 2, "2001:db8:0:2::", "2001:db8:0:3::", "2001:db8:0:3::"},
        {"2001:db8::1", 64, 1, "2001:db8::", "2001:db8::", "2001:db8::"},
        {"ffff:ffff:ffff:ff00::", 56, 256, "ffff:ffff:ffff:ff00::", "ffff:ffff:ffff:ff01::", "ffff:ffff:ffff:ffff::"},
        {"2001:db8::", 65, 0, "", "", ""},
        {"2001:db8::", -1, 0, "", "", ""},
        {"2001:db8::", 128, 0, "", "", ""},
        {"2001:db8::/48", 48, 0, "", "", ""},
    };
    for (const auto& [address, length, count, first, second, last] : rows) {
        std::vector<std::string> prefixes = Router6Prefix::EnumPrefix64(address, length);
        ASSERT_EQ(prefixes.size(), count) << address << " /" << length;
        if (count == 0) continue;
        EXPECT_EQ(prefixes.front(), first) << address << " /" << length;
        EXPECT_EQ(prefixes[count > 1 ? 1 : 0], second) << address << " /" << length;
        EXPECT_EQ(prefixes.back(), last) << address << " /" << length;
    }
}

}  // namespace

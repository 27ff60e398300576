// The texts the routing library accepts: rule destinations and gateways, sources, interface names.
#include "linux/routing.h"

#include <gtest/gtest.h>

namespace {

using tarnnetwork::network::PolicyRouteRule;
using tarnroute::Prefix;

struct RuleCase {
    int family;
    const char* ip;    // nullptr: not assigned
    const char* mask;  // the netmask (IPv4) or prefix length (IPv6); nullptr: not given
    const char* gateway;
    const char* dst;  // the destination made; nullptr: refused
};

void PrintTo(const RuleCase& c, std::ostream* os) {
    *os << (c.ip ? c.ip : "-") << " " << (c.mask ? c.mask : "-") << " " << c.gateway;
}

class RuleText : public ::testing::TestWithParam<RuleCase> {};

TEST_P(RuleText, Destination) {
    const RuleCase& c = GetParam();
    PolicyRouteRule rule;
    rule.type = c.family == AF_INET ? tarnnetwork::network::IPV4 : tarnnetwork::network::IPV6;
    if (c.ip) rule.ip = std::string(c.ip);
    if (c.mask && c.family == AF_INET) rule.mask = std::string(c.mask);
    if (c.mask && c.family == AF_INET6) rule.prefix_length = c.mask;
    rule.gateway = std::string(c.gateway);
    std::string why;
    std::optional<Prefix> dst = tarnroute::RuleDestination(c.family, rule, why);
    std::optional<Prefix> gateway;
    bool valid = dst && tarnroute::RuleGateway(c.family, rule, gateway, why);
    EXPECT_EQ(valid, c.dst != nullptr) << why;
    if (valid && c.dst) {
        EXPECT_EQ(tarnroute::PrefixText(*dst), c.dst);
    } else {
        EXPECT_FALSE(why.empty());
    }
}

INSTANTIATE_TEST_SUITE_P(Cases, RuleText,
                         ::testing::Values(RuleCase{AF_INET, "NULL", "NULL", "192.0.2.1", "default"},
                                           RuleCase{AF_INET, "203.0.113.7", "255.255.255.0", "192.0.2.1", "203.0.113.0/24"},
                                           RuleCase{AF_INET, "203.0.113.7", "255.255.255.255", "NULL", "203.0.113.7"},
                                           RuleCase{AF_INET, "203.0.113.7", "0.0.0.0", "", "default"},
                                           RuleCase{AF_INET, "203.0.113.7", "255.0.255.0", "192.0.2.1", nullptr},
                                           RuleCase{AF_INET, "203.0.113.7", "24", "192.0.2.1", nullptr},
                                           RuleCase{AF_INET, "203.0.113.7", nullptr, "192.0.2.1", nullptr},
                                           RuleCase{AF_INET, nullptr, "255.255.255.0", "192.0.2.1", nullptr},
                                           RuleCase{AF_INET, "NULL", "255.255.255.0", "192.0.2.1", nullptr},
                                           RuleCase{AF_INET, "203.0.113.7", "NULL", "192.0.2.1", nullptr},
                                           RuleCase{AF_INET, "2001:db8::", "255.255.255.0", "192.0.2.1", nullptr},
                                           RuleCase{AF_INET, "203.0.113.7", "255.255.255.0", "2001:db8::1", nullptr},
                                           RuleCase{AF_INET6, "NULL", "NULL", "2001:db8::1", "default"},
                                           RuleCase{AF_INET6, "2001:db8:5::9", "48", "fe80::1", "2001:db8:5::/48"},
                                           RuleCase{AF_INET6, "2001:db8:5::9", "128", "2001:db8::1", "2001:db8:5::9"},
                                           RuleCase{AF_INET6, "2001:db8:5::9", "129", "2001:db8::1", nullptr},
                                           RuleCase{AF_INET6, "2001:db8:5::9", "6x", "2001:db8::1", nullptr},
                                           RuleCase{AF_INET6, "192.0.2.1", "64", "2001:db8::1", nullptr},
                                           RuleCase{AF_INET6, "2001:db8:5::", "64", "192.0.2.1", nullptr}));

struct SourceCase {
    int family;
    const char* source;
    std::vector<std::string> addresses;  // empty: refused
};

class Source : public ::testing::TestWithParam<SourceCase> {};

TEST_P(Source, WholeOrNothing) {
    std::string why;
    std::optional<std::vector<Prefix>> parsed = tarnroute::ParseSource(GetParam().family, GetParam().source, why);
    std::vector<std::string> texts;
    for (const Prefix& address : parsed.value_or(std::vector<Prefix>{})) texts.push_back(tarnroute::PrefixText(address));
    EXPECT_EQ(texts, GetParam().addresses) << GetParam().source;
}

INSTANTIATE_TEST_SUITE_P(Cases, Source,
                         ::testing::Values(SourceCase{AF_INET, "192.0.2.10", {"192.0.2.10"}},
                                           SourceCase{AF_INET, "192.0.2.10,192.0.2.11,192.0.2.10", {"192.0.2.10", "192.0.2.11"}},
                                           SourceCase{AF_INET, "192.0.2.10,", {}}, SourceCase{AF_INET, "", {}},
                                           SourceCase{AF_INET, "192.0.2.10, 192.0.2.11", {}},
                                           SourceCase{AF_INET, "192.0.2.0/24", {}}, SourceCase{AF_INET, "2001:db8::1", {}},
                                           SourceCase{AF_INET6, "2001:db8::1,2001:db8::2", {"2001:db8::1", "2001:db8::2"}},
                                           SourceCase{AF_INET6, "2001:db8::1,192.0.2.1", {}}));

TEST(InterfaceName, AsTheKernelAllows) {
    std::string why;
    for (const char* name : {"wan0", "eth0.10", "a", "fifteen-chars-x", "br#1"})
        EXPECT_TRUE(tarnroute::ValidInterfaceName(name, why)) << name;
    for (const char* name : {"", ".", "..", "sixteen-chars-xx", "a/b", "eth0:1", "a b", "a\tb", "a\nb"})
        EXPECT_FALSE(tarnroute::ValidInterfaceName(name, why)) << name;
}

}  // namespace

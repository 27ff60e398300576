// The texts the routing library accepts: rule destinations and gateways, sources, interface names.
#include "routing/routing.h"

#include <gtest/gtest.h>

#include <tuple>

namespace {

using tarnnetwork::network::PolicyRouteRule;
using tarnroute::Prefix;

// family, ip (nullptr: not assigned), mask or prefix length (nullptr: not given), gateway, the
// destination made (nullptr: refused)
using RuleRow = std::tuple<int, const char*, const char*, const char*, const char*>;

TEST(RuleText, Destination) {
    const RuleRow rows[] = {
        {AF_INET, "203.0.113.7", "255.255.255.0", "192.0.2.1", "203.0.113.0/24"},
        {AF_INET, "203.0.113.7", "255.255.255.255", "NULL", "203.0.113.7"},
        {AF_INET, "203.0.113.7", "0.0.0.0", "", "default"},
        {AF_INET, "203.0.113.7", "24", "192.0.2.1", nullptr},
        {AF_INET, "203.0.113.7", nullptr, "192.0.2.1", nullptr},
        {AF_INET, nullptr, "255.255.255.0", "192.0.2.1", nullptr},
        {AF_INET, "NULL", "255.255.255.0", "192.0.2.1", nullptr},
        {AF_INET, "203.0.113.7", "NULL", "192.0.2.1", nullptr},
        {AF_INET, "2001:db8::", "255.255.255.0", "192.0.2.1", nullptr},
        {AF_INET, "203.0.113.7", "255.255.255.0", "2001:db8::1", nullptr},
        {AF_INET6, "2001:db8:5::9", "48", "fe80::1", "2001:db8:5::/48"},
        {AF_INET6, "2001:db8:5::9", "128", "2001:db8::1", "2001:db8:5::9"},
        {AF_INET6, "2001:db8:5::9", "129", "2001:db8::1", nullptr},
        {AF_INET6, "2001:db8:5::9", "6x", "2001:db8::1", nullptr},
        {AF_INET6, "192.0.2.1", "64", "2001:db8::1", nullptr},
        {AF_INET6, "2001:db8:5::", "64", "192.0.2.1", nullptr},
    };
    for (const auto& [family, ip, mask, gatewayText, expected] : rows) {
        PolicyRouteRule rule;
        rule.type = family == AF_INET ? tarnnetwork::network::IPV4 : tarnnetwork::network::IPV6;
        if (ip) rule.ip = std::string(ip);
        if (mask && family == AF_INET) rule.mask = std::string(mask);
        if (mask && family == AF_INET6) rule.prefix_length = mask;
        rule.gateway = std::string(gatewayText);
        std::string why;
        std::optional<Prefix> dst = tarnroute::RuleDestination(family, rule, why);
        std::optional<Prefix> gateway;
        bool valid = dst && tarnroute::RuleGateway(family, rule, gateway, why);
        std::string row = std::string(ip ? ip : "-") + " " + (mask ? mask : "-") + " " + gatewayText;
        EXPECT_EQ(valid, expected != nullptr) << row << ": " << why;
        EXPECT_EQ(valid ? tarnroute::PrefixText(*dst) : "", expected ? expected : "") << row;
        EXPECT_TRUE(valid || !why.empty()) << row;
    }
}

TEST(Source, WholeOrNothing) {
    // family, source, the addresses (none: refused)
    const std::tuple<int, const char*, std::vector<std::string>> rows[] = {
        {AF_INET, "192.0.2.10,192.0.2.11,192.0.2.10", {"192.0.2.10", "192.0.2.11"}},
        {AF_INET, "192.0.2.10,", {}},
        {AF_INET, "", {}},
        {AF_INET, "192.0.2.10, 192.0.2.11", {}},
        {AF_INET, "192.0.2.0/24", {}},
        {AF_INET, "2001:db8::1", {}},
        {AF_INET6, "2001:db8::1,192.0.2.1", {}},
    };
    for (const auto& [family, source, addresses] : rows) {
        std::string why;
        std::vector<std::string> texts;
        for (const Prefix& address : tarnroute::ParseSource(family, source, why).value_or(std::vector<Prefix>{}))
            texts.push_back(tarnroute::PrefixText(address));
        EXPECT_EQ(texts, addresses) << source;
    }
}

TEST(InterfaceName, AsTheKernelAllows) {
    std::string why;
    for (const char* name : {"wan0", "eth0.10", "a", "fifteen-chars-x", "br#1"})
        EXPECT_TRUE(tarnroute::ValidInterfaceName(name, why)) << name;
    for (const char* name : {"", ".", "..", "sixteen-chars-xx", "a/b", "eth0:1", "a b", "a\tb", "a\nb", "a\x7f", "eth\xc3\xa9"})
        EXPECT_FALSE(tarnroute::ValidInterfaceName(name, why)) << name;
}

}  // namespace

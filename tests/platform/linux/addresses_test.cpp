// The rules that turn the kernel's addresses and links into the libraries' answers.
#include "addresses.h"

#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <linux/if_addr.h>
#include <linux/rtnetlink.h>

namespace {

using tarnlinux::InterfaceAddress;
using tarnnetwork::utils::AddressList;

constexpr int kIndex = 3;

InterfaceAddress Addr(const char* text, int prefixlen, int scope = RT_SCOPE_UNIVERSE, unsigned flags = 0,
                      const char* label = "wan0", int ifindex = kIndex) {
    InterfaceAddress a;
    a.family = std::strchr(text, ':') != nullptr ? AF_INET6 : AF_INET;
    EXPECT_EQ(inet_pton(a.family, text, a.bytes.data()), 1) << text;
    a.ifindex = ifindex;
    a.prefixlen = prefixlen;
    a.scope = scope;
    a.flags = flags;
    a.label = a.family == AF_INET ? label : "";
    return a;
}

// The addresses in use, and the networks of those still joining (not those that failed to).
TEST(Ipv6Addresses, OnlyGlobalOnesOfTheInterfaceInUseOrNamingANetwork) {
    std::vector<InterfaceAddress> all = {
        Addr("2001:db8::1", 64),
        Addr("fe80::1", 64, RT_SCOPE_LINK),
        Addr("2001:db8::2", 64, RT_SCOPE_UNIVERSE, IFA_F_TENTATIVE),
        Addr("2001:db8::3", 64, RT_SCOPE_UNIVERSE, IFA_F_DADFAILED | IFA_F_TENTATIVE),
        Addr("2001:db8::4", 64, RT_SCOPE_UNIVERSE, 0, "", kIndex + 1),
        Addr("192.0.2.1", 24),
        Addr("fe80::2", 64),  // link-local by its range even when the scope says otherwise
        Addr("::1", 128, RT_SCOPE_HOST),
        Addr("fd00:1::9", 56, RT_SCOPE_UNIVERSE, IFA_F_PERMANENT),
    };
    EXPECT_EQ(tarnlinux::GlobalIPv6Of(all, kIndex), (AddressList{{"2001:db8::1", 64}, {"fd00:1::9", 56}}));
    EXPECT_EQ(tarnlinux::NetworksOf(all, kIndex, AF_INET6),
              (AddressList{{"2001:db8::", 64}, {"2001:db8::", 64}, {"::1", 128}, {"fd00:1::", 56}}));
}

// Kernel order: the shown address is the first one labelled with the interface's name; the same
// address under an alias label, or again with another length, is an alias.
TEST(Aliases, AllButTheShownAddress) {
    std::vector<InterfaceAddress> all = {
        Addr("203.0.113.10", 24, RT_SCOPE_UNIVERSE, 0, "wan0:1"),
        Addr("192.0.2.10", 24),
        Addr("192.0.2.10", 28),
        Addr("203.0.113.10", 25),
        Addr("203.0.113.10", 26),
        Addr("192.0.2.99", 24, RT_SCOPE_UNIVERSE, 0, "lan0", kIndex + 1),
    };
    in_addr shown;
    ASSERT_EQ(inet_pton(AF_INET, "203.0.113.10", &shown), 1);
    EXPECT_EQ(tarnlinux::AliasItems(all, kIndex, "wan0", shown),
              (std::vector<std::string>{"203.0.113.10/24", "192.0.2.10/24", "192.0.2.10/28", "203.0.113.10/26"}));
    EXPECT_EQ(tarnlinux::AliasItems(all, kIndex, "wan0", std::nullopt).size(), 5u);
}

// DUID-LL from the lowest index with a non-zero Ethernet address, whatever the order.
TEST(Duid, FromLowestIndexWithEthernetAddress) {
    const std::vector<uint8_t> zero(6, 0), mac = {0x02, 0x42, 0xc0, 0xa8, 0x00, 0x02},
                                           other = {0xAA, 0xBB, 0xCC, 0xDD, 0xEE, 0xFF};
    EXPECT_EQ(tarnlinux::DuidOf({{7, other}, {1, zero}, {2, {192, 0, 2, 1}}, {4, mac}}), "00:03:00:01:02:42:c0:a8:00:02");
}

}  // namespace

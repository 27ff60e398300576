// The rules that turn the kernel's addresses and links into the libraries' answers.
#include "linux/linux.h"

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

struct NetworkCase {
    const char* address;
    int prefixlen;
    const char* network;
};

class Network : public ::testing::TestWithParam<NetworkCase> {};

TEST_P(Network, HostBitsCleared) {
    EXPECT_EQ(tarnlinux::NetworkText(Addr(GetParam().address, GetParam().prefixlen)), GetParam().network);
}

INSTANTIATE_TEST_SUITE_P(
    Cases, Network,
    ::testing::Values(NetworkCase{"192.0.2.77", 24, "192.0.2.0"}, NetworkCase{"198.51.100.200", 25, "198.51.100.128"},
                      NetworkCase{"203.0.113.9", 32, "203.0.113.9"}, NetworkCase{"203.0.113.9", 0, "0.0.0.0"},
                      NetworkCase{"198.51.100.7", 9, "198.0.0.0"}, NetworkCase{"2001:db8:1::1", 64, "2001:db8:1::"},
                      NetworkCase{"2001:db8:2:3::5", 48, "2001:db8:2::"}, NetworkCase{"2001:db8::ffff", 127, "2001:db8::fffe"},
                      NetworkCase{"2001:db8::1", 128, "2001:db8::1"}, NetworkCase{"2001:db8::1", 0, "::"}));

TEST(Ipv6Addresses, OnlyGlobalOnesInUseOfTheInterface) {
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
}

TEST(Networks, OneFamilyOfTheInterfaceWithoutLinkLocal) {
    std::vector<InterfaceAddress> all = {
        Addr("192.0.2.77", 24),
        Addr("169.254.3.3", 16),
        Addr("2001:db8:1::1", 64, RT_SCOPE_UNIVERSE, IFA_F_TENTATIVE),
        Addr("2001:db8:2::1", 64, RT_SCOPE_UNIVERSE, IFA_F_DADFAILED),
        Addr("fe80::1", 64, RT_SCOPE_LINK),
        Addr("198.51.100.7", 25, RT_SCOPE_UNIVERSE, 0, "wan0:1"),
        Addr("203.0.113.1", 24, RT_SCOPE_UNIVERSE, 0, "lan0", kIndex + 1),
    };
    EXPECT_EQ(tarnlinux::NetworksOf(all, kIndex, AF_INET), (AddressList{{"192.0.2.0", 24}, {"198.51.100.0", 25}}));
    EXPECT_EQ(tarnlinux::NetworksOf(all, kIndex, AF_INET6), (AddressList{{"2001:db8:1::", 64}}));
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

struct DuidCase {
    const char* name;
    std::vector<tarnlinux::Link> links;
    const char* duid;
};

void PrintTo(const DuidCase& c, std::ostream* os) { *os << c.name; }

class Duid : public ::testing::TestWithParam<DuidCase> {};

TEST_P(Duid, FromLowestIndexWithEthernetAddress) { EXPECT_EQ(tarnlinux::DuidOf(GetParam().links), GetParam().duid); }

const std::vector<uint8_t> kZeroMac(6, 0);
const std::vector<uint8_t> kMac = {0x02, 0x42, 0xc0, 0xa8, 0x00, 0x02};
const std::vector<uint8_t> kOtherMac = {0xAA, 0xBB, 0xCC, 0xDD, 0xEE, 0xFF};

INSTANTIATE_TEST_SUITE_P(Cases, Duid,
                         ::testing::Values(DuidCase{"LowestIndexWhateverTheOrder",
                                                    {{7, kOtherMac}, {1, kZeroMac}, {4, kMac}},
                                                    "00:03:00:01:02:42:c0:a8:00:02"},
                                           DuidCase{"LowerCaseHex", {{2, kOtherMac}}, "00:03:00:01:aa:bb:cc:dd:ee:ff"},
                                           DuidCase{"OtherLengthsSkipped",
                                                    {{2, {192, 0, 2, 1}}, {3, std::vector<uint8_t>(20, 0x11)}, {9, kMac}},
                                                    "00:03:00:01:02:42:c0:a8:00:02"},
                                           DuidCase{"OnlyZeroAddresses", {{1, kZeroMac}, {2, {}}}, ""},
                                           DuidCase{"NoLinks", {}, ""}),
                         [](const ::testing::TestParamInfo<DuidCase>& info) { return std::string(info.param.name); });

}  // namespace

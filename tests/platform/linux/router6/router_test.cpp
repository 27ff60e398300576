// The /64 prefixes of a delegated prefix, the 6to4 prefix of an IPv4 address, and the request
// that makes a tunnel (the kernel here has no sit type, so the request itself is checked).
#include "router6/router6.h"
#include "tarnnetwork.h"

#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <linux/if_link.h>
#include <linux/if_tunnel.h>
#include <linux/rtnetlink.h>
#include <netlink/attr.h>
#include <netlink/msg.h>

#include <memory>
#include <tuple>

namespace {

using namespace tarnlinux::router6;
using tarn::network::ipv6::router::Router6Prefix;

uint32_t IPv4(const char* text) {
    in_addr address;
    inet_pton(AF_INET, text, &address);
    return address.s_addr;
}

TEST(SixToFour, Prefix) {
    EXPECT_EQ(SixToFourPrefix(IPv4("192.0.2.1")), "2002:c000:201::/48");
    EXPECT_EQ(SixToFourPrefix(IPv4("203.0.113.255")), "2002:cb00:71ff::/48");
    EXPECT_EQ(SixToFourPrefix(IPv4("0.0.0.1")), "2002:0:1::/48");
}

TEST(Tunnel, Request) {
    TunnelPlan plan{"6in4-wan0", IPv4("192.0.2.1"), IPv4("198.51.100.1"), 7};
    std::unique_ptr<nl_msg, void (*)(nl_msg*)> msg(TunnelRequest(plan), nlmsg_free);
    ASSERT_TRUE(msg);
    nlmsghdr* header = nlmsg_hdr(msg.get());
    EXPECT_EQ(header->nlmsg_type, RTM_NEWLINK);
    EXPECT_EQ(header->nlmsg_flags & (NLM_F_CREATE | NLM_F_EXCL), NLM_F_CREATE | NLM_F_EXCL);
    nlattr* link[IFLA_MAX + 1];
    ASSERT_EQ(nlmsg_parse(header, sizeof(ifinfomsg), link, IFLA_MAX, nullptr), 0);
    ASSERT_TRUE(link[IFLA_IFNAME] && link[IFLA_LINKINFO]);
    EXPECT_STREQ(nla_get_string(link[IFLA_IFNAME]), "6in4-wan0");
    nlattr* info[IFLA_INFO_MAX + 1];
    ASSERT_EQ(nla_parse_nested(info, IFLA_INFO_MAX, link[IFLA_LINKINFO], nullptr), 0);
    ASSERT_TRUE(info[IFLA_INFO_KIND] && info[IFLA_INFO_DATA]);
    EXPECT_STREQ(nla_get_string(info[IFLA_INFO_KIND]), "sit");
    nlattr* tunnel[IFLA_IPTUN_MAX + 1];
    ASSERT_EQ(nla_parse_nested(tunnel, IFLA_IPTUN_MAX, info[IFLA_INFO_DATA], nullptr), 0);
    ASSERT_TRUE(tunnel[IFLA_IPTUN_LOCAL] && tunnel[IFLA_IPTUN_REMOTE] && tunnel[IFLA_IPTUN_TTL] && tunnel[IFLA_IPTUN_LINK]);
    EXPECT_EQ(nla_get_u32(tunnel[IFLA_IPTUN_LOCAL]), plan.local);
    EXPECT_EQ(nla_get_u32(tunnel[IFLA_IPTUN_REMOTE]), plan.remote);
    EXPECT_EQ(nla_get_u8(tunnel[IFLA_IPTUN_TTL]), 64);
    EXPECT_EQ(nla_get_u32(tunnel[IFLA_IPTUN_LINK]), 7u);
}

// At the edges of the 128-bit arithmetic.
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

// Which of the kernel's addresses and links each library answer is made of.
#include "addresses.h"

#include <arpa/inet.h>
#include <linux/if_addr.h>
#include <linux/rtnetlink.h>

#include <algorithm>
#include <cstdio>

namespace tarnlinux {
namespace {

constexpr size_t kMacLength = 6;
// DUID-LL (RFC 8415): type 3, hardware type 1 (Ethernet), then the link-layer address.
constexpr uint8_t kDuidLLHeader[] = {0x00, 0x03, 0x00, 0x01};

bool Usable(const InterfaceAddress& address) {
    return (address.flags & (IFA_F_TENTATIVE | IFA_F_DADFAILED)) == 0 && address.scope == RT_SCOPE_UNIVERSE &&
           !IsLinkLocal(address);
}

std::string HexBytes(const uint8_t* bytes, size_t count, std::string text) {
    char hex[4];
    for (size_t i = 0; i < count; ++i) {
        std::snprintf(hex, sizeof hex, "%02x", bytes[i]);
        if (!text.empty()) text += ':';
        text += hex;
    }
    return text;
}

}  // namespace

tarnnetwork::utils::AddressList GlobalIPv6Of(const std::vector<InterfaceAddress>& all, int ifindex) {
    tarnnetwork::utils::AddressList list;
    for (const InterfaceAddress& address : all) {
        if (address.ifindex != ifindex || address.family != AF_INET6 || !Usable(address)) continue;
        list.emplace_back(AddressText(address), address.prefixlen);
    }
    return list;
}

tarnnetwork::utils::AddressList NetworksOf(const std::vector<InterfaceAddress>& all, int ifindex, int family) {
    tarnnetwork::utils::AddressList list;
    for (const InterfaceAddress& address : all) {
        if (address.ifindex != ifindex || address.family != family) continue;
        if (!NamesNetwork(address)) continue;
        list.emplace_back(NetworkText(address), address.prefixlen);
    }
    return list;
}

std::vector<std::string> AliasItems(const std::vector<InterfaceAddress>& all, int ifindex, const std::string& ifname,
                                    const std::optional<in_addr>& primary) {
    std::vector<std::string> items;
    bool primarySeen = !primary.has_value();
    for (const InterfaceAddress& address : all) {
        if (address.ifindex != ifindex || address.family != AF_INET) continue;
        if (!primarySeen && address.label == ifname &&
            std::equal(address.bytes.begin(), address.bytes.begin() + 4, reinterpret_cast<const uint8_t*>(&primary->s_addr))) {
            primarySeen = true;
            continue;
        }
        items.push_back(AddressText(address) + "/" + std::to_string(address.prefixlen));
    }
    return items;
}

std::string DuidOf(std::vector<Link> links) {
    std::sort(links.begin(), links.end(), [](const Link& a, const Link& b) { return a.ifindex < b.ifindex; });
    for (const Link& link : links) {
        if (link.hwaddr.size() != kMacLength) continue;
        if (std::all_of(link.hwaddr.begin(), link.hwaddr.end(), [](uint8_t b) { return b == 0; })) continue;
        std::string text = HexBytes(kDuidLLHeader, sizeof kDuidLLHeader, "");
        return HexBytes(link.hwaddr.data(), link.hwaddr.size(), text);
    }
    return "";
}

}  // namespace tarnlinux

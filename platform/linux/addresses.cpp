// Which of the kernel's addresses and links each library answer is made of.
#include "linux.h"

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

int AddressBytes(int family) { return family == AF_INET ? 4 : 16; }

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

std::string AddressText(const InterfaceAddress& address) {
    char text[INET6_ADDRSTRLEN] = "";
    if (inet_ntop(address.family, address.bytes.data(), text, sizeof text) == nullptr) return "";
    return text;
}

std::string NetworkText(const InterfaceAddress& address) {
    InterfaceAddress network = address;
    int bits = std::clamp(address.prefixlen, 0, AddressBytes(address.family) * 8);
    for (int i = 0; i < AddressBytes(address.family); ++i) {
        int keep = std::clamp(bits - i * 8, 0, 8);
        network.bytes[i] &= static_cast<uint8_t>(0xff00 >> keep);
    }
    return AddressText(network);
}

bool IsLinkLocal(const InterfaceAddress& address) {
    if (address.scope == RT_SCOPE_LINK) return true;
    if (address.family == AF_INET) return address.bytes[0] == 169 && address.bytes[1] == 254;
    return address.bytes[0] == 0xfe && (address.bytes[1] & 0xc0) == 0x80;
}

tarnnetwork::utils::AddressList GlobalIPv6Of(const std::vector<InterfaceAddress>& all, int ifindex) {
    tarnnetwork::utils::AddressList list;
    for (const InterfaceAddress& address : all) {
        if (address.ifindex != ifindex || address.family != AF_INET6 || !Usable(address)) continue;
        list.emplace_back(AddressText(address), address.prefixlen);
    }
    return list;
}

// A tentative address still names the network it is joining; only one that failed its
// duplicate check is not on the link.
tarnnetwork::utils::AddressList NetworksOf(const std::vector<InterfaceAddress>& all, int ifindex, int family) {
    tarnnetwork::utils::AddressList list;
    for (const InterfaceAddress& address : all) {
        if (address.ifindex != ifindex || address.family != family) continue;
        if (IsLinkLocal(address) || (address.flags & IFA_F_DADFAILED) != 0) continue;
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

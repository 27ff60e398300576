#include "hostkit/interfaces.h"

#include "hostkit/inet.h"
#include "hostkit/netlink.h"

#include <linux/if_addr.h>
#include <linux/rtnetlink.h>

#include <cstring>

namespace tarnlinux {
namespace {

void TakeAddress(nl_object* object, std::vector<InterfaceAddress>& out) {
    auto* addr = reinterpret_cast<rtnl_addr*>(object);
    nl_addr* local = rtnl_addr_get_local(addr);
    if (local == nullptr) return;
    InterfaceAddress address;
    address.family = rtnl_addr_get_family(addr);
    size_t length = nl_addr_get_len(local);
    if ((address.family != AF_INET || length != 4) && (address.family != AF_INET6 || length != 16)) return;
    std::memcpy(address.bytes.data(), nl_addr_get_binary_addr(local), length);
    address.ifindex = rtnl_addr_get_ifindex(addr);
    address.prefixlen = rtnl_addr_get_prefixlen(addr);
    address.scope = rtnl_addr_get_scope(addr);
    address.flags = rtnl_addr_get_flags(addr);
    if (const char* label = rtnl_addr_get_label(addr)) address.label = label;
    out.push_back(std::move(address));
}

void TakeLink(nl_object* object, std::vector<Link>& out) {
    auto* rlink = reinterpret_cast<rtnl_link*>(object);
    Link link;
    link.ifindex = rtnl_link_get_ifindex(rlink);
    if (const char* name = rtnl_link_get_name(rlink)) link.name = name;
    if (const char* kind = rtnl_link_get_type(rlink)) link.kind = kind;
    link.flags = rtnl_link_get_flags(rlink);
    if (nl_addr* hw = rtnl_link_get_addr(rlink)) {
        const auto* bytes = static_cast<const uint8_t*>(nl_addr_get_binary_addr(hw));
        link.hwaddr.assign(bytes, bytes + nl_addr_get_len(hw));
    }
    out.push_back(std::move(link));
}

template <typename T>
bool DumpInto(nl::Session& session, int type, int family, void (*take)(nl_object*, std::vector<T>&), std::vector<T>& out) {
    auto restart = [&] { out.clear(); };
    auto each = [&](nl_object* object) { take(object, out); };
    return session.Dump(type, family, restart, each);
}

}  // namespace

bool DumpAddresses(nl::Session& session, int family, std::vector<InterfaceAddress>& out) {
    return DumpInto(session, RTM_GETADDR, family, TakeAddress, out);
}

bool DumpLinks(nl::Session& session, std::vector<Link>& out) { return DumpInto(session, RTM_GETLINK, AF_UNSPEC, TakeLink, out); }

bool DumpAddresses(int family, std::vector<InterfaceAddress>& out) {
    nl::Session session;
    return DumpAddresses(session, family, out);
}

bool DumpLinks(std::vector<Link>& out) {
    nl::Session session;
    return DumpLinks(session, out);
}

std::optional<Link> FindLink(nl::Session& session, const std::string& name) {
    std::vector<Link> links;
    if (!DumpLinks(session, links)) return std::nullopt;
    for (Link& link : links)
        if (link.name == name) return std::move(link);
    return std::nullopt;
}

bool IsLinkLocal(const InterfaceAddress& address) {
    if (address.scope == RT_SCOPE_LINK) return true;
    if (address.family == AF_INET) return address.bytes[0] == 169 && address.bytes[1] == 254;
    return address.bytes[0] == 0xfe && (address.bytes[1] & 0xc0) == 0x80;
}

bool NamesNetwork(const InterfaceAddress& address) { return !IsLinkLocal(address) && (address.flags & IFA_F_DADFAILED) == 0; }

std::string AddressText(const InterfaceAddress& address) { return AddressText(address.family, address.bytes.data()); }

std::string NetworkText(const InterfaceAddress& address) {
    InterfaceAddress network = address;
    MaskBits(network.bytes.data(), address.family == AF_INET ? 4 : 16, address.prefixlen);
    return AddressText(network);
}

}  // namespace tarnlinux

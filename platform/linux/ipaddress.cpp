// Network library on Linux: the parts that need nothing but the kernel (address queries, the
// DUID, the gateway list filter).
#include "corestr.h"
#include "addresses.h"
#include "tarnnetwork.h"

#include <net/if.h>

namespace tarnnetwork {
namespace network {

int FilterList(std::string cls, Json::Value& list) {
    tarncore::KeepClass(cls, list);
    return 0;
}

}  // namespace network

namespace utils {
namespace {

// The interface's entries of one family from a fresh dump; empty when the interface is
// unknown or the kernel cannot be asked.
AddressList Query(const std::string& ifname, int family,
                  AddressList (*pick)(const std::vector<tarnlinux::InterfaceAddress>&, int, int)) {
    unsigned ifindex = if_nametoindex(ifname.c_str());
    std::vector<tarnlinux::InterfaceAddress> all;
    if (ifindex == 0 || !tarnlinux::DumpAddresses(family, all)) return {};
    return pick(all, static_cast<int>(ifindex), family);
}

AddressList PickGlobalIPv6(const std::vector<tarnlinux::InterfaceAddress>& all, int ifindex, int) {
    return tarnlinux::GlobalIPv6Of(all, ifindex);
}

}  // namespace

AddressList IPAddress::GetIPv6Address(const std::string& ifname) { return Query(ifname, AF_INET6, PickGlobalIPv6); }

AddressList IPAddress::GetIPv4Network(const std::string& ifname) { return Query(ifname, AF_INET, tarnlinux::NetworksOf); }

AddressList IPAddress::GetIPv6Network(const std::string& ifname) { return Query(ifname, AF_INET6, tarnlinux::NetworksOf); }

std::string GenDUID() {
    std::vector<tarnlinux::Link> links;
    if (!tarnlinux::DumpLinks(links)) return "";
    return tarnlinux::DuidOf(std::move(links));
}

}  // namespace utils
}  // namespace tarnnetwork

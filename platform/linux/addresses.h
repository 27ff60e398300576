// Which of the kernel's addresses and links each answer of the network library and SDK is made
// of: pure rules over dumped values, testable without a network namespace.
#ifndef TARN_PLATFORM_LINUX_ADDRESSES_H
#define TARN_PLATFORM_LINUX_ADDRESSES_H

#include "hostkit/interfaces.h"
#include "tarnnetwork.h"

#include <netinet/in.h>

#include <optional>
#include <string>
#include <vector>

namespace tarnlinux {

// (address, prefix length) of the interface's global IPv6 addresses that are in use.
tarnnetwork::utils::AddressList GlobalIPv6Of(const std::vector<InterfaceAddress>& all, int ifindex);
// (network, prefix length) of the interface's addresses of `family` that name a network.
tarnnetwork::utils::AddressList NetworksOf(const std::vector<InterfaceAddress>& all, int ifindex, int family);
// "address/prefixlength" of the interface's IPv4 addresses except `primary`, the one that
// SIOCGIFADDR reports (the first address labelled with the interface's own name).
std::vector<std::string> AliasItems(const std::vector<InterfaceAddress>& all, int ifindex, const std::string& ifname,
                                    const std::optional<in_addr>& primary);

// DUID-LL text from the lowest-index link with a non-zero 6-byte hardware address; "" when none.
std::string DuidOf(std::vector<Link> links);

}  // namespace tarnlinux

#endif

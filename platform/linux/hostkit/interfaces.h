// The kernel's interfaces and addresses as plain values, dumped over rtnetlink.
#ifndef TARN_HOSTKIT_INTERFACES_H
#define TARN_HOSTKIT_INTERFACES_H

#include <array>
#include <cstdint>
#include <string>
#include <vector>

namespace tarnlinux {

// One address as the kernel lists it (RTM_NEWADDR).
struct InterfaceAddress {
    int family = 0;  // AF_INET or AF_INET6
    int ifindex = 0;
    std::array<uint8_t, 16> bytes{};  // the local address; IPv4 uses the first 4
    int prefixlen = 0;
    int scope = 0;       // RT_SCOPE_*
    unsigned flags = 0;  // IFA_F_*
    std::string label;   // IPv4 only: the interface name, or an alias label such as "eth0:1"
};

// One link as the kernel lists it (RTM_NEWLINK).
struct Link {
    int ifindex = 0;
    std::vector<uint8_t> hwaddr;
};

// Kernel dumps over rtnetlink, in the kernel's order; false when the kernel could not be asked.
bool DumpAddresses(int family, std::vector<InterfaceAddress>& out);
bool DumpLinks(std::vector<Link>& out);

}  // namespace tarnlinux

#endif

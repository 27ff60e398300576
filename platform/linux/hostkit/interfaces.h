// The kernel's interfaces and addresses as plain values, dumped over rtnetlink.
#ifndef TARN_HOSTKIT_INTERFACES_H
#define TARN_HOSTKIT_INTERFACES_H

#include <array>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace tarnlinux {

namespace nl {
class Session;
}

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
    std::string name{};
    std::string kind{};  // "sit", "veth", "bridge"…; "" for a device without link info
    unsigned flags = 0;  // IFF_*
};

// Kernel dumps over rtnetlink, in the kernel's order; false when the kernel could not be asked.
bool DumpAddresses(nl::Session& session, int family, std::vector<InterfaceAddress>& out);
bool DumpLinks(nl::Session& session, std::vector<Link>& out);
// The same, each on a session of its own.
bool DumpAddresses(int family, std::vector<InterfaceAddress>& out);
bool DumpLinks(std::vector<Link>& out);

// The link named `name`; nullopt when there is none or the kernel could not be asked.
std::optional<Link> FindLink(nl::Session& session, const std::string& name);

// fe80::/10, 169.254.0.0/16, or link scope.
bool IsLinkLocal(const InterfaceAddress& address);
// Whether the address names a network on its link: not link-local, and not one that failed its
// duplicate check (a tentative address still names the network it is joining).
bool NamesNetwork(const InterfaceAddress& address);
// The address, or its network (host bits cleared), as text.
std::string AddressText(const InterfaceAddress& address);
std::string NetworkText(const InterfaceAddress& address);

}  // namespace tarnlinux

#endif

// Network SDK on Linux: an interface's IP aliases.
#include "corestr.h"
#include "addresses.h"
#include "hostkit/fd.h"
#include "tarnnetsdk.h"

#include <net/if.h>
#include <sys/ioctl.h>
#include <sys/socket.h>

#include <cerrno>
#include <cstring>

namespace {

enum class Primary { Found, None, Unknown };

// The address that SIOCGIFADDR (and so ifconfig) reports for the interface.
Primary PrimaryAddress(const char* ifname, in_addr& address) {
    tarnlinux::Fd sock(socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0));
    if (sock.Get() < 0) return Primary::Unknown;
    ifreq request{};
    std::strncpy(request.ifr_name, ifname, IFNAMSIZ - 1);
    if (ioctl(sock.Get(), SIOCGIFADDR, &request) < 0) return errno == EADDRNOTAVAIL ? Primary::None : Primary::Unknown;
    address = reinterpret_cast<const sockaddr_in*>(&request.ifr_addr)->sin_addr;
    return Primary::Found;
}

}  // namespace

extern "C" {

int TARNNetIpAliasList(const char* ifname, TLIBCSzList** list) {
    if (ifname == nullptr || list == nullptr || *list == nullptr || std::strlen(ifname) >= IFNAMSIZ) return -1;
    unsigned ifindex = if_nametoindex(ifname);
    in_addr primary{};
    Primary found = PrimaryAddress(ifname, primary);
    std::vector<tarnlinux::InterfaceAddress> all;
    if (ifindex == 0 || found == Primary::Unknown || !tarnlinux::DumpAddresses(AF_INET, all)) return -1;
    std::optional<in_addr> shown;
    if (found == Primary::Found) shown = primary;
    for (const std::string& item : tarnlinux::AliasItems(all, static_cast<int>(ifindex), ifname, shown))
        if (tarncore::SzListAdd(list, item.c_str()) != 0) return -1;
    return 0;
}

int TARNNetSeperateSubnet(const char* item, char* buf, int size, int* prefixLen) {
    return tarncore::SeperateSubnet(item, buf, size, prefixLen);
}

}  // extern "C"

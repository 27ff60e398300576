// Internals of the Linux platform: the kernel's view of interfaces and addresses, and the pure
// rules that turn it into the libraries' answers (kept apart from the system calls so that
// they can be tested without a network namespace).
#ifndef TARN_PLATFORM_LINUX_LINUX_H
#define TARN_PLATFORM_LINUX_LINUX_H

#include "hostkit/fd.h"
#include "hostkit/interfaces.h"
#include "tarnnetwork.h"

#include <netinet/in.h>
#include <unistd.h>

#include <array>
#include <chrono>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace tarnlinux {

// "192.0.2.1", "2001:db8::1".
std::string AddressText(const InterfaceAddress& address);
// The address with the host bits cleared, as text.
std::string NetworkText(const InterfaceAddress& address);
// fe80::/10, 169.254.0.0/16, or link scope.
bool IsLinkLocal(const InterfaceAddress& address);

// (address, prefix length) of the interface's global IPv6 addresses that are in use.
tarnnetwork::utils::AddressList GlobalIPv6Of(const std::vector<InterfaceAddress>& all, int ifindex);
// (network, prefix length) of the interface's addresses of `family`, link-local excluded.
tarnnetwork::utils::AddressList NetworksOf(const std::vector<InterfaceAddress>& all, int ifindex, int family);
// "address/prefixlength" of the interface's IPv4 addresses except `primary`, the one that
// SIOCGIFADDR reports (the first address labelled with the interface's own name).
std::vector<std::string> AliasItems(const std::vector<InterfaceAddress>& all, int ifindex, const std::string& ifname,
                                    const std::optional<in_addr>& primary);

// DUID-LL text from the lowest-index link with a non-zero 6-byte hardware address; "" when none.
std::string DuidOf(std::vector<Link> links);

// The value of the first `key=value` line of a key/value file's text, quotes removed.
std::optional<std::string> ValueOf(const std::string& text, const std::string& key);
// `text` with every line whose first word is `key` replaced by `line`, or `line` appended.
std::string WithLine(const std::string& text, const std::string& key, const std::string& line);

// Takes flock(LOCK_EX) on `fd`, waiting at most `limit` for a holder: true when taken.
bool FlockWithin(int fd, std::chrono::milliseconds limit);

}  // namespace tarnlinux

#endif

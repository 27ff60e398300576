// The one rule for interface names, shared by tarnnetd, the routing code and the IPv6 router.
#ifndef TARN_PLATFORM_LINUX_IFNAME_H
#define TARN_PLATFORM_LINUX_IFNAME_H

#include <string>

namespace tarnlinux {

// What the kernel accepts as a device name, narrowed to printable ASCII: the names end up in
// line-based files, JSON documents and log lines, where control bytes and broken UTF-8 do harm.
bool ValidIfname(const std::string& name);

}  // namespace tarnlinux

#endif

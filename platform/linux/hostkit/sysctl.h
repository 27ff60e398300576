// Kernel settings under /proc/sys, read and written without following a link.
#ifndef TARN_HOSTKIT_SYSCTL_H
#define TARN_HOSTKIT_SYSCTL_H

#include <string>

namespace tarnlinux {

// "/proc/sys/net/ipv6/conf/<ifname>/<name>"
std::string IPv6ConfPath(const std::string& ifname, const char* name);

// The setting's text as the kernel gives it (newline included); false with errno.
bool ReadSysctl(const std::string& path, std::string& value);
// False with errno unless the kernel took all of `value`.
bool WriteSysctl(const std::string& path, const std::string& value);

}  // namespace tarnlinux

#endif

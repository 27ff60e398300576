#include "hostkit/sysctl.h"

#include "hostkit/fd.h"

#include <fcntl.h>

#include <cerrno>

namespace tarnlinux {
namespace {

// Every setting we touch is a number or a word.
constexpr size_t kMaxValue = 64;

}  // namespace

std::string IPv6ConfPath(const std::string& ifname, const char* name) { return "/proc/sys/net/ipv6/conf/" + ifname + "/" + name; }

bool ReadSysctl(const std::string& path, std::string& value) {
    Fd fd(open(path.c_str(), O_RDONLY | O_NOFOLLOW | O_CLOEXEC));
    char buffer[kMaxValue];
    ssize_t got = fd.Get() < 0 ? -1 : read(fd.Get(), buffer, sizeof buffer);
    if (got < 0) return false;
    errno = EIO;
    if (got == 0) return false;
    value.assign(buffer, static_cast<size_t>(got));
    return true;
}

bool WriteSysctl(const std::string& path, const std::string& value) {
    Fd fd(open(path.c_str(), O_WRONLY | O_NOFOLLOW | O_CLOEXEC));
    if (fd.Get() < 0) return false;
    ssize_t put = write(fd.Get(), value.data(), value.size());
    if (put == static_cast<ssize_t>(value.size())) return true;
    if (put >= 0) errno = EIO;
    return false;
}

}  // namespace tarnlinux

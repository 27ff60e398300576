#include "hostkit/ifname.h"

#include <net/if.h>

#include <algorithm>

namespace tarnlinux {

bool ValidIfname(const std::string& name) {
    if (name.empty() || name.size() >= IFNAMSIZ || name == "." || name == "..") return false;
    return std::all_of(name.begin(), name.end(), [](char c) { return c > ' ' && c < '\x7f' && c != '/' && c != ':'; });
}

}  // namespace tarnlinux

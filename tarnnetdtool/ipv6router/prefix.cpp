// --apply-new-prefix and the redistribution of an interface's /64 prefixes that it shares with
// --init-ipv6-router.
#include "conventions.h"
#include "ipv6router/ipv6router.h"
#include "tarncore.h"

#include <boost/lexical_cast.hpp>

#include <cstdio>
#include <cstring>
#include <optional>
#include <vector>

using tarn::network::ipv6::router::Router6Attr;
using tarn::network::ipv6::router::Router6Prefix;
using tarnnetwork::utils::FileLock;

namespace {

constexpr char kVpnOwner[] = "ovpn";
constexpr char kVpnSettings[] = "/usr/tarn/etc/packages/Tunnelbay/tarnvpn.conf";
constexpr char kVpnIPv6Key[] = "ovpn_enable_ipv6";
constexpr char kOpenVpnConfig[] = "/usr/tarn/etc/packages/Tunnelbay/openvpn/openvpn.conf";
constexpr char kServerIPv6Key[] = "server-ipv6";
constexpr char kOpenVpnScript[] = "/var/packages/Tunnelbay/target/scripts/openvpn.sh";
constexpr int kValueSize = 1024;

// The length text of a prefix as a signed 32-bit number; nullopt unless it is one, whole.
std::optional<int> ParseLength(const std::string& text) {
    try {
        return boost::lexical_cast<int>(text);
    } catch (const boost::bad_lexical_cast&) {
        return std::nullopt;
    }
}

// The /64 prefixes available inside "address/length"; nullopt, logged, when there is nothing to
// hand out.
std::optional<std::vector<std::string>> AvailablePrefixes(const std::string& prefix) {
    size_t slash = prefix.find('/');
    if (slash == std::string::npos) {
        TOOL_LOG(LOG_INFO, "Unable to tokenize prefix [%s], skip", prefix.c_str());
        return std::nullopt;
    }
    std::optional<int> length = ParseLength(prefix.substr(slash + 1));
    if (!length) {
        TOOL_LOG(LOG_INFO, "Unable to parse prefix length [%s], skip", prefix.c_str());
        return std::nullopt;
    }
    std::vector<std::string> prefixes = Router6Prefix::EnumPrefix64(prefix.substr(0, slash), *length);
    if (prefixes.empty()) {
        TOOL_LOG(LOG_WARNING, "Unable to enumerate available prefix");
        return std::nullopt;
    }
    return prefixes;
}

// Points the VPN server's IPv6 pool at `candidate` and restarts it, when IPv6 is on for it.
// Its failures are logged and never stop the walk.
void MoveVpnServer(const std::string& candidate) {
    char value[kValueSize] = {};
    if (TLIBCFileGetKeyValue(kVpnSettings, kVpnIPv6Key, value, sizeof value, 0) <= 0) return;
    if (std::strncmp(value, "yes", sizeof value) != 0) return;
    std::snprintf(value, sizeof value, "%s %s/64", kServerIPv6Key, candidate.c_str());
    if (TLIBCFileSetLine(kOpenVpnConfig, kServerIPv6Key, value, 0) <= 0) {
        TOOL_LOG(LOG_ERR, "Failed to modify openvpn ipv6 prefix to [%s]", candidate.c_str());
        return;
    }
    if (TLIBCExec(kOpenVpnScript, "restart", nullptr, nullptr, nullptr) < 0) TOOL_LOG(LOG_ERR, "Failed to restart OpenVPN");
}

// Moves each owner, in order, from its held prefix to the next prefix not yet handed out. A
// candidate is used up only by a successful Allocate, so a failed step offers it to the next owner.
void HandOut(Router6Prefix& pool, const std::vector<std::pair<std::string, std::string>>& allocations,
             const std::vector<std::string>& prefixes) {
    size_t next = 0;
    for (const auto& [held, owner] : allocations) {
        if (next >= prefixes.size()) return;
        const std::string& candidate = prefixes[next];
        if (owner == kVpnOwner) MoveVpnServer(candidate);
        if (!pool.Deallocate(held, owner)) {
            TOOL_LOG(LOG_INFO, "Failed to deallocate IPv6 prefix: %s", held.c_str());
            continue;
        }
        if (!pool.Allocate(candidate, owner)) {
            TOOL_LOG(LOG_INFO, "Failed to allocate IPv6 prefix: %s", candidate.c_str());
            continue;
        }
        ++next;
    }
}

int ApplyLocked(FileLock& lock, int argc, char** argv) {
    if (argc != 3) return kFail;
    if (!lock.Lock()) {
        TOOL_LOG(LOG_ERR, "Failed to lock in ApplyNewPrefix");
        return kFail;
    }
    return ApplyPrefixOrLog(argv[2]);
}

}  // namespace

int ApplyPrefixOnInterface(const std::string& ifname) {
    Router6Attr attr;
    Router6Prefix pool;
    attr.ifname = ifname;
    if (attr.LoadConfig() < 0) {
        TOOL_LOG(LOG_INFO, "No IPv6 router config for %s available", ifname.c_str());
        return kFail;
    }
    std::optional<std::vector<std::string>> prefixes = AvailablePrefixes(attr.prefix);
    if (!prefixes) return kFail;
    HandOut(pool, attr.allocations, *prefixes);
    return kOk;
}

int ApplyPrefixOrLog(const char* ifname) {
    if (ApplyPrefixOnInterface(ifname) >= 0) return kOk;
    TOOL_LOG(LOG_INFO, "Failed to apply new prefix on %s", ifname);
    return kFail;
}

int ApplyNewPrefix(int argc, char** argv) {
    FileLock lock(kRouterLockPath, true);  // constructed and released whatever the arguments
    int result = ApplyLocked(lock, argc, argv);
    lock.Unlock();
    return result;
}

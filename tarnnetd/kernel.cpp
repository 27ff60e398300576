#include "kernel.h"

#include "hostkit/fd.h"
#include "hostkit/netlink.h"
#include "hostkit/owned.h"

#include <fcntl.h>
#include <net/if.h>
#include <syslog.h>

#include <cerrno>
#include <cstdio>
#include <cstring>

namespace tarnnetd {
namespace {

constexpr char kDisableIPv6[] = "/proc/sys/net/ipv6/conf/%s/disable_ipv6";

using tarnlinux::nl::Connect;

bool Fail(std::string& error, const std::string& reason) {
    error = reason;
    return false;
}

bool IsOurDefault(rtnl_route* route, int family) {
    nl_addr* dst = rtnl_route_get_dst(route);
    return rtnl_route_get_family(route) == family && rtnl_route_get_table(route) == RT_TABLE_MAIN &&
           rtnl_route_get_protocol(route) == tarnlinux::kProtoGateway && dst != nullptr && nl_addr_get_prefixlen(dst) == 0;
}

bool Matches(rtnl_route* route, const DefaultRoute& wanted, nl_addr* gateway) {
    if (rtnl_route_get_nnexthops(route) != 1 || rtnl_route_get_priority(route) != tarnlinux::kGatewayMetric) return false;
    rtnl_nexthop* hop = rtnl_route_nexthop_n(route, 0);
    nl_addr* via = rtnl_route_nh_get_gateway(hop);
    return rtnl_route_nh_get_ifindex(hop) == wanted.ifindex && via != nullptr && nl_addr_cmp(via, gateway) == 0;
}

// Names our protocols for `ip route`; a failure only costs the names.
void NameProtocols() {
    if (!tarnlinux::NameRouteProtocols())
        syslog(LOG_WARNING, "%s not written: %s", tarnlinux::kProtoNamesPath, std::strerror(errno));
}

bool ReadSmall(const std::string& path, std::string& text) {
    tarnlinux::Fd fd(open(path.c_str(), O_RDONLY | O_NOFOLLOW | O_CLOEXEC));
    char buffer[16];
    ssize_t got = fd.Get() < 0 ? -1 : read(fd.Get(), buffer, sizeof buffer);
    if (got <= 0) return false;
    text.assign(buffer, static_cast<size_t>(got));
    return true;
}

bool WriteSmall(const std::string& path, const std::string& text) {
    tarnlinux::Fd fd(open(path.c_str(), O_WRONLY | O_NOFOLLOW | O_CLOEXEC));
    return fd.Get() >= 0 && write(fd.Get(), text.data(), text.size()) == static_cast<ssize_t>(text.size());
}

}  // namespace

std::optional<int> UpInterface(const std::string& ifname) {
    tarnlinux::nl::Socket sock = Connect();
    rtnl_link* raw = nullptr;
    if (!sock || rtnl_link_get_kernel(sock.get(), 0, ifname.c_str(), &raw) < 0) return std::nullopt;
    tarnlinux::nl::Link link(raw);
    if ((rtnl_link_get_flags(link.get()) & IFF_UP) == 0) return std::nullopt;
    return rtnl_link_get_ifindex(link.get());
}

bool SetDefaultRoute(Family family, const std::optional<DefaultRoute>& wanted, std::string& error) {
    int af = AddressFamily(family);
    tarnlinux::nl::Socket sock = Connect();
    nl_cache* raw = nullptr;
    if (!sock || rtnl_route_alloc_cache(sock.get(), af, 0, &raw) < 0) return Fail(error, "cannot read the routes");
    tarnlinux::nl::Cache cache(raw);
    nl_addr* parsed = nullptr;
    if (wanted && nl_addr_parse(wanted->gateway.c_str(), af, &parsed) < 0) return Fail(error, "bad gateway " + wanted->gateway);
    tarnlinux::nl::Addr gateway(parsed);
    bool present = false;
    for (nl_object* object = nl_cache_get_first(cache.get()); object != nullptr; object = nl_cache_get_next(object)) {
        auto* route = reinterpret_cast<rtnl_route*>(object);
        if (!IsOurDefault(route, af)) continue;
        if (wanted && !present && Matches(route, *wanted, gateway.get())) {
            present = true;
            continue;
        }
        int result = rtnl_route_delete(sock.get(), route, 0);
        if (result < 0 && result != -NLE_OBJ_NOTFOUND)
            return Fail(error, std::string("cannot remove our default route: ") + nl_geterror(result));
    }
    if (!wanted || present) return true;
    NameProtocols();
    tarnlinux::nl::Route route =
        tarnlinux::nl::DefaultRoute(af, wanted->ifindex, gateway.get(), tarnlinux::kProtoGateway, tarnlinux::kGatewayMetric);
    if (!route) return Fail(error, "out of memory");
    // EXCL: a default route of someone else's with our metric is not ours to replace.
    int result = rtnl_route_add(sock.get(), route.get(), NLM_F_CREATE | NLM_F_EXCL);
    if (result < 0) return Fail(error, "cannot add default via " + wanted->gateway + ": " + nl_geterror(result));
    return true;
}

bool ResetIPv6(const std::string& ifname, std::string& error) {
    if (!ValidIfname(ifname) || if_nametoindex(ifname.c_str()) == 0) return Fail(error, "no interface " + ifname);
    char path[sizeof kDisableIPv6 + IFNAMSIZ];
    std::snprintf(path, sizeof path, kDisableIPv6, ifname.c_str());
    std::string old;
    if (!ReadSmall(path, old)) return Fail(error, std::string("cannot read ") + path);
    if (!WriteSmall(path, "1\n")) return Fail(error, std::string("cannot write ") + path);
    if (!WriteSmall(path, old)) return Fail(error, std::string("cannot restore ") + path);
    return true;
}

}  // namespace tarnnetd

#include "kernel.h"

#include "hostkit/atomicfile.h"
#include "hostkit/interfaces.h"
#include "hostkit/netlink.h"
#include "hostkit/owned.h"
#include "hostkit/sysctl.h"

#include <dirent.h>
#include <net/if.h>
#include <syslog.h>

#include <cerrno>
#include <cstring>
#include <memory>
#include <vector>

namespace tarnnetd {
namespace {

using tarnlinux::nl::Session;

constexpr char kDisableIPv6[] = "disable_ipv6";

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

// Our default routes of the family, as the kernel has them.
bool OurDefaults(Session& session, int family, std::vector<tarnlinux::nl::Route>& out) {
    auto restart = [&] { out.clear(); };
    auto take = [&](nl_object* object) {
        auto* route = reinterpret_cast<rtnl_route*>(object);
        if (!IsOurDefault(route, family)) return;
        nl_object_get(object);
        out.emplace_back(route);
    };
    return session.Dump(RTM_GETROUTE, family, restart, take);
}

}  // namespace

std::optional<int> UpInterface(const std::string& ifname) {
    Session session;
    std::optional<tarnlinux::Link> link = tarnlinux::FindLink(session, ifname);
    if (!link || (link->flags & IFF_UP) == 0) return std::nullopt;
    return link->ifindex;
}

bool SetDefaultRoute(Family family, const std::optional<DefaultRoute>& wanted, std::string& error) {
    int af = AddressFamily(family);
    Session session;
    std::vector<tarnlinux::nl::Route> ours;
    if (!OurDefaults(session, af, ours)) return Fail(error, "cannot read the routes");
    nl_addr* parsed = nullptr;
    if (wanted && nl_addr_parse(wanted->gateway.c_str(), af, &parsed) < 0) return Fail(error, "bad gateway " + wanted->gateway);
    tarnlinux::nl::Addr gateway(parsed);
    bool present = false;
    for (const tarnlinux::nl::Route& route : ours) {
        if (wanted && !present && Matches(route.get(), *wanted, gateway.get())) {
            present = true;
            continue;
        }
        nl_msg* msg = nullptr;
        int built = rtnl_route_build_del_request(route.get(), 0, &msg);
        if (!session.Change(msg, built, "cannot remove our default route") && session.Errno() != ESRCH)
            return Fail(error, session.Error());
    }
    if (!wanted || present) return true;
    NameProtocols();
    tarnlinux::nl::Route route =
        tarnlinux::nl::DefaultRoute(af, wanted->ifindex, gateway.get(), tarnlinux::kProtoGateway, tarnlinux::kGatewayMetric);
    if (!route) return Fail(error, "out of memory");
    // EXCL: a default route of someone else's with our metric is not ours to replace.
    nl_msg* msg = nullptr;
    int built = rtnl_route_build_add_request(route.get(), NLM_F_CREATE | NLM_F_EXCL, &msg);
    if (!session.Change(msg, built, "cannot add default via " + wanted->gateway)) return Fail(error, session.Error());
    return true;
}

// The value to restore is written down first, so that a daemon killed in between restores it
// at its next start instead of leaving IPv6 off.
bool ResetIPv6(const std::string& ifname, std::string& error) {
    if (!ValidIfname(ifname) || if_nametoindex(ifname.c_str()) == 0) return Fail(error, "no interface " + ifname);
    std::string path = tarnlinux::IPv6ConfPath(ifname, kDisableIPv6);
    std::string marker = std::string(tarnlinux::kIPv6ResetDir) + "/" + ifname;
    std::string old;
    if (!tarnlinux::ReadSysctl(path, old)) return Fail(error, "cannot read " + path);
    if (!tarnlinux::ReplaceFile(marker, old)) return Fail(error, "cannot write " + marker + ": " + std::strerror(errno));
    if (!tarnlinux::WriteSysctl(path, "1\n")) return Fail(error, "cannot write " + path);
    if (!tarnlinux::WriteSysctl(path, old)) return Fail(error, "cannot restore " + path);
    unlink(marker.c_str());
    return true;
}

void FinishIPv6Resets() {
    std::unique_ptr<DIR, int (*)(DIR*)> listing(opendir(tarnlinux::kIPv6ResetDir), closedir);
    while (dirent* entry = listing ? readdir(listing.get()) : nullptr) {
        std::string ifname = entry->d_name;
        std::string marker = std::string(tarnlinux::kIPv6ResetDir) + "/" + ifname;
        std::string old;
        if (!ValidIfname(ifname) || tarnlinux::ReadRegular(marker, old, 16) != tarnlinux::ReadResult::kRead) continue;
        if (if_nametoindex(ifname.c_str()) != 0 && !tarnlinux::WriteSysctl(tarnlinux::IPv6ConfPath(ifname, kDisableIPv6), old))
            syslog(LOG_ERR, "%s: disable_ipv6 not restored: %s", ifname.c_str(), std::strerror(errno));
        unlink(marker.c_str());
    }
}

}  // namespace tarnnetd

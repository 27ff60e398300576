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

bool IsDefault(rtnl_route* route, int family, uint32_t table = RT_TABLE_MAIN) {
    nl_addr* dst = rtnl_route_get_dst(route);
    return rtnl_route_get_family(route) == family && rtnl_route_get_table(route) == table && dst != nullptr &&
           nl_addr_get_prefixlen(dst) == 0;
}

bool Matches(rtnl_route* route, const DefaultRoute& wanted, nl_addr* gateway, uint32_t metric = tarnlinux::kGatewayMetric) {
    if (rtnl_route_get_nnexthops(route) != 1 || rtnl_route_get_priority(route) != metric) return false;
    rtnl_nexthop* hop = rtnl_route_nexthop_n(route, 0);
    nl_addr* via = rtnl_route_nh_get_gateway(hop);
    return rtnl_route_nh_get_ifindex(hop) == wanted.ifindex && via != nullptr && nl_addr_cmp(via, gateway) == 0;
}

// Names our protocols for `ip route`; a failure only costs the names.
void NameProtocols() {
    if (!tarnlinux::NameRouteProtocols())
        syslog(LOG_WARNING, "%s not written: %s", tarnlinux::kProtoNamesPath, std::strerror(errno));
}

// The family's default routes in the main table as the kernel has them: ours, and whether a
// route of another protocol holds our metric (then ours cannot be replaced in one step).
struct Defaults {
    std::vector<tarnlinux::nl::Route> ours;
    bool othersAtOurMetric = false;
};

bool ReadDefaults(Session& session, int family, Defaults& out) {
    auto restart = [&] { out = Defaults(); };
    auto take = [&](nl_object* object) {
        auto* route = reinterpret_cast<rtnl_route*>(object);
        if (!IsDefault(route, family)) return;
        if (rtnl_route_get_protocol(route) != tarnlinux::kProtoGateway) {
            out.othersAtOurMetric |= rtnl_route_get_priority(route) == tarnlinux::kGatewayMetric;
            return;
        }
        nl_object_get(object);
        out.ours.emplace_back(route);
    };
    return session.DumpRoutes(family, {RT_TABLE_MAIN, 0}, restart, take);
}

bool Install(Session& session, int family, const DefaultRoute& wanted, nl_addr* gateway, int flags, std::string& error) {
    NameProtocols();
    tarnlinux::nl::Route route =
        tarnlinux::nl::DefaultRoute(family, wanted.ifindex, gateway, tarnlinux::kProtoGateway, tarnlinux::kGatewayMetric);
    if (!route) return Fail(error, "out of memory");
    nl_msg* msg = nullptr;
    int built = rtnl_route_build_add_request(route.get(), flags, &msg);
    if (!session.Change(msg, built, "cannot add default via " + wanted.gateway + " dev " + wanted.ifname))
        return Fail(error, session.Error());
    return true;
}

// Removes our routes but the one that matches `kept` (none when null); one replaced a moment
// ago is gone already.
bool RemoveOthers(Session& session, const Defaults& present, const DefaultRoute* kept, nl_addr* gateway, std::string& error) {
    for (const tarnlinux::nl::Route& route : present.ours) {
        if (kept != nullptr && Matches(route.get(), *kept, gateway)) continue;
        nl_msg* msg = nullptr;
        int built = rtnl_route_build_del_request(route.get(), 0, &msg);
        if (!session.Change(msg, built, "cannot remove our default route") && session.Errno() != ESRCH)
            return Fail(error, session.Error());
    }
    return true;
}

// EXCL when nothing of ours is there: a default of someone else's with our metric is not ours
// to replace. REPLACE when ours is the only one at the metric, so that no packet sees a gap.
int AddFlags(const Defaults& present) {
    if (present.ours.empty()) return NLM_F_CREATE | NLM_F_EXCL;
    return present.othersAtOurMetric ? NLM_F_CREATE : NLM_F_CREATE | NLM_F_REPLACE;
}

// The address of the family to probe from: IPv4's first (primary) one; IPv6's first global one,
// else its link-local one (taken in a second pass). Addresses that failed their duplicate check
// do not count.
void TakeAddress(const tarnlinux::InterfaceAddress& address, bool linkLocalPass, LinkStates& links,
                 const std::map<int, std::string>& names) {
    auto name = names.find(address.ifindex);
    if (name == names.end() || (address.flags & IFA_F_DADFAILED) != 0) return;
    if (address.family == AF_INET6 && tarnlinux::IsLinkLocal(address) != linkLocalPass) return;
    Family family = address.family == AF_INET ? Family::kV4 : Family::kV6;
    std::string& chosen = links[name->second].address[static_cast<int>(family)];
    if (chosen.empty()) chosen = tarnlinux::AddressText(address);
}

bool HasMatch(const Defaults& present, const DefaultRoute& wanted, nl_addr* gateway) {
    for (const tarnlinux::nl::Route& route : present.ours)
        if (Matches(route.get(), wanted, gateway)) return true;
    return false;
}

// Our routes in the probe table.
bool ReadProbeRoutes(Session& session, int family, std::vector<tarnlinux::nl::Route>& out) {
    auto restart = [&] { out.clear(); };
    auto take = [&](nl_object* object) {
        auto* route = reinterpret_cast<rtnl_route*>(object);
        if (!IsDefault(route, family, tarnlinux::kProbeTable) || rtnl_route_get_protocol(route) != tarnlinux::kProtoGateway)
            return;
        nl_object_get(object);
        out.emplace_back(route);
    };
    return session.DumpRoutes(family, {tarnlinux::kProbeTable, tarnlinux::kProtoGateway}, restart, take);
}

bool AddProbeRoute(Session& session, int family, const DefaultRoute& uplink, nl_addr* gateway, std::string& error) {
    auto metric = static_cast<uint32_t>(uplink.ifindex);
    tarnlinux::nl::Route route = tarnlinux::nl::DefaultRoute(family, uplink.ifindex, gateway, tarnlinux::kProtoGateway, metric);
    if (!route) return Fail(error, "out of memory");
    rtnl_route_set_table(route.get(), tarnlinux::kProbeTable);
    nl_msg* msg = nullptr;
    int built = rtnl_route_build_add_request(route.get(), NLM_F_CREATE | NLM_F_REPLACE, &msg);
    if (!session.Change(msg, built, "cannot add the probe route via " + uplink.gateway + " dev " + uplink.ifname))
        return Fail(error, session.Error());
    return true;
}

// The rule that leads our marked probes to the probe table, made or removed.
bool SetProbeRule(Session& session, int family, bool wanted, std::string& error) {
    tarnlinux::nl::Rule rule(rtnl_rule_alloc());
    if (!rule) return Fail(error, "out of memory");
    rtnl_rule_set_family(rule.get(), family);
    rtnl_rule_set_prio(rule.get(), tarnlinux::kProbePriority);
    rtnl_rule_set_table(rule.get(), tarnlinux::kProbeTable);
    rtnl_rule_set_action(rule.get(), FR_ACT_TO_TBL);
    rtnl_rule_set_mark(rule.get(), tarnlinux::kProbeMark);
    rtnl_rule_set_protocol(rule.get(), tarnlinux::kProtoGateway);
    nl_msg* msg = nullptr;
    int built = wanted ? rtnl_rule_build_add_request(rule.get(), NLM_F_CREATE | NLM_F_EXCL, &msg)
                       : rtnl_rule_build_delete_request(rule.get(), 0, &msg);
    if (session.Change(msg, built, wanted ? "cannot add the probe rule" : "cannot remove the probe rule")) return true;
    if (session.Errno() == (wanted ? EEXIST : ENOENT)) return true;
    return Fail(error, session.Error());
}

}  // namespace

bool ReadLinks(LinkStates& out) {
    Session session;
    std::vector<tarnlinux::Link> links;
    std::vector<tarnlinux::InterfaceAddress> addresses;
    if (!tarnlinux::DumpLinks(session, links) || !tarnlinux::DumpAddresses(session, AF_UNSPEC, addresses)) return false;
    out.clear();
    std::map<int, std::string> names;
    for (const tarnlinux::Link& link : links) {
        names[link.ifindex] = link.name;
        LinkState& state = out[link.name];
        state.ifindex = link.ifindex;
        state.adminUp = (link.flags & IFF_UP) != 0;
        state.running = (link.flags & IFF_RUNNING) != 0;
    }
    for (bool linkLocalPass : {false, true})
        for (const tarnlinux::InterfaceAddress& address : addresses) TakeAddress(address, linkLocalPass, out, names);
    return true;
}

bool Usable(const LinkState& link, Family family) {
    return link.adminUp && link.running && !link.address[static_cast<int>(family)].empty();
}

bool SetDefaultRoute(Family family, const std::vector<DefaultRoute>& candidates, std::string& error) {
    int af = AddressFamily(family);
    Session session;
    Defaults present;
    if (!ReadDefaults(session, af, present)) return Fail(error, "cannot read the routes");
    if (candidates.empty()) return RemoveOthers(session, present, nullptr, nullptr, error);
    std::string reasons;
    for (const DefaultRoute& wanted : candidates) {
        nl_addr* parsed = nullptr;
        std::string reason = "bad gateway " + wanted.gateway;
        if (nl_addr_parse(wanted.gateway.c_str(), af, &parsed) < 0) {
            reasons += (reasons.empty() ? "" : "; ") + reason;
            continue;
        }
        tarnlinux::nl::Addr gateway(parsed);
        if (!HasMatch(present, wanted, gateway.get()) &&
            !Install(session, af, wanted, gateway.get(), AddFlags(present), reason)) {
            reasons += (reasons.empty() ? "" : "; ") + reason;
            continue;
        }
        return RemoveOthers(session, present, &wanted, gateway.get(), error);
    }
    return Fail(error, reasons);
}

bool SetProbeRoutes(Family family, const std::vector<DefaultRoute>& uplinks, std::string& error) {
    int af = AddressFamily(family);
    Session session;
    std::vector<tarnlinux::nl::Route> present;
    if (!ReadProbeRoutes(session, af, present)) return Fail(error, "cannot read the probe routes");
    std::vector<bool> keep(present.size(), false);
    for (const DefaultRoute& uplink : uplinks) {
        nl_addr* parsed = nullptr;
        if (nl_addr_parse(uplink.gateway.c_str(), af, &parsed) < 0) continue;
        tarnlinux::nl::Addr gateway(parsed);
        bool found = false;
        for (size_t i = 0; i < present.size(); ++i)
            if (Matches(present[i].get(), uplink, gateway.get(), static_cast<uint32_t>(uplink.ifindex))) found = keep[i] = true;
        if (!found && !AddProbeRoute(session, af, uplink, gateway.get(), error)) return false;
    }
    for (size_t i = 0; i < present.size(); ++i) {
        nl_msg* msg = nullptr;
        int built = keep[i] ? 0 : rtnl_route_build_del_request(present[i].get(), 0, &msg);
        if (!keep[i] && !session.Change(msg, built, "cannot remove a probe route") && session.Errno() != ESRCH)
            return Fail(error, session.Error());
    }
    return SetProbeRule(session, af, !uplinks.empty(), error);
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

// The kernel's routes and rules over rtnetlink (libnl-route), as plain values, and the changes
// to them.
#include "hostkit/netlink.h"
#include "routing/routing.h"

#include <linux/fib_rules.h>
#include <netlink/route/nexthop.h>
#include <netlink/route/rtnl.h>

#include <cstring>

namespace tarnroute {
namespace {

using tarnlinux::nl::Addr;

Prefix FromAddr(const nl_addr* addr, int family) {
    Prefix prefix;
    prefix.family = family;
    if (addr == nullptr) return prefix;
    size_t length = std::min<size_t>(nl_addr_get_len(addr), sizeof prefix.bytes);
    std::memcpy(prefix.bytes.data(), nl_addr_get_binary_addr(addr), length);
    prefix.length = static_cast<int>(nl_addr_get_prefixlen(addr));
    return prefix;
}

Addr ToAddr(const Prefix& prefix) {
    Addr addr(nl_addr_build(prefix.family, prefix.bytes.data(), AddressBits(prefix.family) / 8));
    if (addr) nl_addr_set_prefixlen(addr.get(), prefix.length);
    return addr;
}

// The route or rule of a dumped object, kept unless it is a cached clone.
void Take(nl_object* object, std::vector<Route>& out) {
    auto* kernel = reinterpret_cast<rtnl_route*>(object);
    if ((rtnl_route_get_flags(kernel) & RTM_F_CLONED) != 0) return;
    Route route;
    route.family = rtnl_route_get_family(kernel);
    route.table = rtnl_route_get_table(kernel);
    route.dst = FromAddr(rtnl_route_get_dst(kernel), route.family);
    route.metric = rtnl_route_get_priority(kernel);
    route.protocol = rtnl_route_get_protocol(kernel);
    route.scope = rtnl_route_get_scope(kernel);
    route.type = rtnl_route_get_type(kernel);
    for (int i = 0; i < rtnl_route_get_nnexthops(kernel); ++i) {
        rtnl_nexthop* nexthop = rtnl_route_nexthop_n(kernel, i);
        Hop hop;
        hop.ifindex = rtnl_route_nh_get_ifindex(nexthop);
        if (nl_addr* gateway = rtnl_route_nh_get_gateway(nexthop)) hop.gateway = FromAddr(gateway, route.family);
        route.hops.push_back(hop);
    }
    out.push_back(std::move(route));
}

void Take(nl_object* object, std::vector<Rule>& out) {
    auto* kernel = reinterpret_cast<rtnl_rule*>(object);
    Rule rule;
    rule.family = rtnl_rule_get_family(kernel);
    rule.priority = rtnl_rule_get_prio(kernel);
    rule.table = rtnl_rule_get_table(kernel);
    if (rtnl_rule_get_protocol(kernel, &rule.protocol) < 0) rule.protocol = RTPROT_UNSPEC;
    if (nl_addr* src = rtnl_rule_get_src(kernel)) rule.src = FromAddr(src, rule.family);
    out.push_back(std::move(rule));
}

}  // namespace

Kernel::Kernel() {
    if (!session_.Ok()) LogError(session_.Error());
}

bool Kernel::Send(nl_msg* msg, int built, const std::string& what) {
    if (session_.Change(msg, built, what)) return true;
    LogError(session_.Error());
    return false;
}

template <typename T>
bool Kernel::Dump(int type, int family, std::vector<T>& out, const tarnlinux::nl::RouteFilter* filter) {
    auto restart = [&] { out.clear(); };
    auto take = [&](nl_object* object) { Take(object, out); };
    bool ok =
        filter != nullptr ? session_.DumpRoutes(family, *filter, restart, take) : session_.Dump(type, family, restart, take);
    if (ok) return true;
    std::string reason = session_.Errno() != 0 ? std::string(": ") + std::strerror(session_.Errno()) : "";
    LogError(std::string("cannot read the kernel's ") + FamilyName(family) + (type == RTM_GETROUTE ? " routes" : " rules") +
             reason);
    return false;
}

bool Kernel::DumpRoutes(int family, std::vector<Route>& out) { return Ok() && Dump(RTM_GETROUTE, family, out); }

bool Kernel::DumpRoutes(int family, const tarnlinux::nl::RouteFilter& filter, std::vector<Route>& out) {
    return Ok() && Dump(RTM_GETROUTE, family, out, &filter);
}

bool Kernel::DumpRules(int family, std::vector<Rule>& out) { return Ok() && Dump(RTM_GETRULE, family, out); }

namespace {

tarnlinux::nl::Route KernelRoute(const Route& route) {
    tarnlinux::nl::Route kernel(rtnl_route_alloc());
    Addr dst = ToAddr(route.dst);
    if (!kernel || !dst) return nullptr;
    rtnl_route_set_family(kernel.get(), static_cast<uint8_t>(route.family));
    rtnl_route_set_table(kernel.get(), route.table);
    rtnl_route_set_dst(kernel.get(), dst.get());
    rtnl_route_set_priority(kernel.get(), route.metric);
    rtnl_route_set_protocol(kernel.get(), route.protocol);
    rtnl_route_set_scope(kernel.get(), route.scope);
    rtnl_route_set_type(kernel.get(), route.type);
    for (const Hop& hop : route.hops) {
        rtnl_nexthop* nexthop = rtnl_route_nh_alloc();
        if (nexthop == nullptr) return nullptr;
        if (hop.ifindex != 0) rtnl_route_nh_set_ifindex(nexthop, hop.ifindex);
        if (hop.gateway) {
            Addr gateway = ToAddr(*hop.gateway);
            if (gateway) rtnl_route_nh_set_gateway(nexthop, gateway.get());
        }
        rtnl_route_add_nexthop(kernel.get(), nexthop);
    }
    return kernel;
}

tarnlinux::nl::Rule KernelRule(const Rule& rule) {
    tarnlinux::nl::Rule kernel(rtnl_rule_alloc());
    if (!kernel) return nullptr;
    rtnl_rule_set_family(kernel.get(), rule.family);
    rtnl_rule_set_prio(kernel.get(), rule.priority);
    rtnl_rule_set_table(kernel.get(), rule.table);
    rtnl_rule_set_action(kernel.get(), FR_ACT_TO_TBL);
    rtnl_rule_set_protocol(kernel.get(), rule.protocol);
    if (rule.src) {
        Addr src = ToAddr(*rule.src);
        if (!src || rtnl_rule_set_src(kernel.get(), src.get()) < 0) return nullptr;
    }
    return kernel;
}

}  // namespace

bool Kernel::AddRoute(const Route& route, bool replace) {
    auto kernel = KernelRoute(route);
    nl_msg* msg = nullptr;
    int flags = NLM_F_CREATE | (replace ? NLM_F_REPLACE : NLM_F_EXCL);
    int built = kernel ? rtnl_route_build_add_request(kernel.get(), flags, &msg) : -NLE_NOMEM;
    return Send(msg, built, (replace ? "replace route " : "add route ") + Describe(route));
}

bool Kernel::DeleteRoute(const Route& route) {
    auto kernel = KernelRoute(route);
    nl_msg* msg = nullptr;
    int built = kernel ? rtnl_route_build_del_request(kernel.get(), 0, &msg) : -NLE_NOMEM;
    return Send(msg, built, "delete route " + Describe(route));
}

bool Kernel::AddRule(const Rule& rule) {
    auto kernel = KernelRule(rule);
    nl_msg* msg = nullptr;
    int built = kernel ? rtnl_rule_build_add_request(kernel.get(), NLM_F_CREATE | NLM_F_EXCL, &msg) : -NLE_NOMEM;
    // libnl has no setter for it; the attribute goes after the ones it wrote.
    if (built >= 0 && rule.suppressDefault) built = nla_put_u32(msg, FRA_SUPPRESS_PREFIXLEN, 0);
    return Send(msg, built, "add " + Describe(rule));
}

bool Kernel::Apply(const RoutePlan& plan) {
    bool ok = true;
    for (const Route& route : plan.remove) ok = DeleteRoute(route) && ok;
    for (const Route& route : plan.add) ok = AddRoute(route, false) && ok;
    for (const Route& route : plan.replace) ok = AddRoute(route, true) && ok;
    for (const Route& route : plan.conflicts) {
        LogError("route " + Describe(route) + " skipped: a route of another protocol holds its place");
        ok = false;
    }
    return ok;
}

bool Kernel::DeleteRule(const Rule& rule) {
    auto kernel = KernelRule(rule);
    nl_msg* msg = nullptr;
    int built = kernel ? rtnl_rule_build_delete_request(kernel.get(), 0, &msg) : -NLE_NOMEM;
    return Send(msg, built, "delete " + Describe(rule));
}

}  // namespace tarnroute

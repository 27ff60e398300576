// The kernel's routes and rules over rtnetlink (libnl-route), as plain values, and the changes
// to them. libnl turns the kernel's errno into its own coarser codes, so the error callback
// keeps the errno and the kernel's extended-ack text for the log line.
#include "hostkit/netlink.h"
#include "routing/routing.h"

#include <linux/fib_rules.h>
#include <linux/netlink.h>
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

// The text after the kernel's error: its extended-ack attributes follow the echoed request
// (only its header when the ack was capped).
std::string ExtAckText(const nlmsgerr* error) {
    const auto* header = reinterpret_cast<const nlmsghdr*>(reinterpret_cast<const char*>(error) - NLMSG_HDRLEN);
    if ((header->nlmsg_flags & NLM_F_ACK_TLVS) == 0) return "";
    size_t offset = NLMSG_HDRLEN + sizeof(nlmsgerr);
    if ((header->nlmsg_flags & NLM_F_CAPPED) == 0) offset += error->msg.nlmsg_len - NLMSG_HDRLEN;
    if (offset >= header->nlmsg_len) return "";
    nlattr* attrs[NLMSGERR_ATTR_MAX + 1] = {};
    auto* first = reinterpret_cast<nlattr*>(const_cast<char*>(reinterpret_cast<const char*>(header)) + offset);
    if (nla_parse(attrs, NLMSGERR_ATTR_MAX, first, static_cast<int>(header->nlmsg_len - offset), nullptr) < 0) return "";
    if (attrs[NLMSGERR_ATTR_MSG] == nullptr) return "";
    return std::string(static_cast<const char*>(nla_data(attrs[NLMSGERR_ATTR_MSG])),
                       strnlen(static_cast<const char*>(nla_data(attrs[NLMSGERR_ATTR_MSG])), nla_len(attrs[NLMSGERR_ATTR_MSG])));
}

}  // namespace

Kernel::Kernel() {
    nl_sock* sock = nl_socket_alloc();
    if (sock == nullptr || nl_connect(sock, NETLINK_ROUTE) < 0) {
        if (sock != nullptr) nl_socket_free(sock);
        LogError("routing: cannot open an rtnetlink socket");
        return;
    }
    int on = 1;
    setsockopt(nl_socket_get_fd(sock), SOL_NETLINK, NETLINK_EXT_ACK, &on, sizeof on);
    setsockopt(nl_socket_get_fd(sock), SOL_NETLINK, NETLINK_CAP_ACK, &on, sizeof on);
    nl_socket_modify_err_cb(sock, NL_CB_CUSTOM, OnError, this);
    sock_ = sock;
}

Kernel::~Kernel() {
    if (sock_ != nullptr) nl_socket_free(sock_);
}

int Kernel::OnError(sockaddr_nl*, nlmsgerr* error, void* self) {
    auto* kernel = static_cast<Kernel*>(self);
    kernel->errno_ = -error->error;
    try {
        kernel->reason_ = ExtAckText(error);
    } catch (...) {
        kernel->reason_.clear();
    }
    return NL_STOP;
}

bool Kernel::Send(nl_msg* msg, int built, const std::string& what) {
    errno_ = 0;
    reason_.clear();
    if (built < 0 || sock_ == nullptr) {
        nlmsg_free(msg);
        LogError("routing: " + what + ": " + (sock_ == nullptr ? "no rtnetlink socket" : nl_geterror(built)));
        return false;
    }
    int result = nl_send_sync(sock_, msg);
    if (result >= 0) return true;
    std::string cause = errno_ != 0 ? std::strerror(errno_) : nl_geterror(result);
    if (!reason_.empty()) cause += " (" + reason_ + ")";
    LogError("routing: " + what + ": " + cause);
    return false;
}

template <typename T>
bool Kernel::Dump(int type, int family, std::vector<T>& out) {
    auto restart = [&] { out.clear(); };
    auto take = [&](nl_object* object) { Take(object, out); };
    if (tarnlinux::nl::Dump(sock_, type, family, restart, take)) return true;
    LogError(std::string("routing: cannot read the kernel's ") + FamilyName(family) +
             (type == RTM_GETROUTE ? " routes" : " rules"));
    return false;
}

bool Kernel::DumpRoutes(int family, std::vector<Route>& out) { return Ok() && Dump(RTM_GETROUTE, family, out); }

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
        LogError("routing: route " + Describe(route) + " skipped: a route of another protocol holds its place");
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

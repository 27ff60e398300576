// The IPv6 routers: native (forwarding on, router advertisements still accepted) and the
// 6in4 and 6to4 tunnels, made through rtnetlink and /proc/sys; and the consumers' addresses.
#include "hostkit/interfaces.h"
#include "hostkit/log.h"
#include "hostkit/netlink.h"
#include "hostkit/owned.h"
#include "hostkit/sysctl.h"
#include "router6/router6.h"
#include "tarnnetwork.h"

#include <arpa/inet.h>
#include <net/if.h>
#include <netlink/route/link/sit.h>
#include <syslog.h>

#include <cstring>
#include <new>

namespace tarnlinux::router6 {
namespace {

constexpr char kNative[] = "native";
constexpr char k6in4[] = "6in4";
constexpr char k6to4[] = "6to4";
constexpr char kTunnelPrefix[] = "6in4-";
constexpr char kSitKind[] = "sit";
constexpr uint8_t kTunnelTtl = 64;
// The 6to4 relay anycast address (RFC 3068), as an IPv4-compatible next hop.
constexpr char kSixToFourRelay[] = "::192.88.99.1";
constexpr int kSubnetLength = 64;
constexpr int kSixToFourLength = 48;
// The tunnel's own address lies in 2002::/16, the whole 6to4 space, reached through the relay.
constexpr int kSixToFourTunnelLength = 16;

using nl::Session;

nl::Addr BuildAddress(int family, const void* bytes, size_t size, int length) {
    nl::Addr address(nl_addr_build(family, bytes, size));
    if (address) nl_addr_set_prefixlen(address.get(), length);
    return address;
}

// Sends a change and logs the kernel's refusal, unless its errno is `harmless`.
bool Change(Session& session, nl_msg* msg, int built, const std::string& what, int harmless = 0) {
    if (session.Change(msg, built, what) || (harmless != 0 && session.Errno() == harmless)) return true;
    Log(LOG_ERR, kLog, session.Error());
    return false;
}

// Adds or removes an IPv6 address; one already there (or already gone) counts as done. With
// `lifetimes` an address is made with them, and with `replace` one already there takes them
// (RTM_NEWADDR with NLM_F_REPLACE changes only its lifetimes).
bool ChangeAddress(Session& session, int ifindex, unsigned __int128 bits, int length, bool add,
                   const Lifetimes* lifetimes = nullptr, bool replace = false) {
    in6_addr local = ToIn6(bits);
    nl::Address address(rtnl_addr_alloc());
    nl::Addr bytes = BuildAddress(AF_INET6, &local, sizeof local, length);
    if (!session.Ok() || !address || !bytes) return false;
    rtnl_addr_set_ifindex(address.get(), ifindex);
    rtnl_addr_set_family(address.get(), AF_INET6);
    if (rtnl_addr_set_local(address.get(), bytes.get()) < 0) return false;
    rtnl_addr_set_prefixlen(address.get(), length);
    // The router alone numbers its delegated /64s; an address in detection would hold back the
    // LAN's router advertisements for the new prefix.
    if (add) rtnl_addr_set_flags(address.get(), IFA_F_NODAD);
    if (lifetimes != nullptr) {
        rtnl_addr_set_preferred_lifetime(address.get(), lifetimes->preferred);
        rtnl_addr_set_valid_lifetime(address.get(), lifetimes->valid);
    }
    nl_msg* msg = nullptr;
    int built = add ? rtnl_addr_build_add_request(address.get(), NLM_F_CREATE | (replace ? NLM_F_REPLACE : 0), &msg)
                    : rtnl_addr_build_delete_request(address.get(), 0, &msg);
    std::string what = "address " + AddressText(bits) + "/" + std::to_string(length) + (add ? " not added" : " not removed");
    return Change(session, msg, built, what, add ? EEXIST : EADDRNOTAVAIL);
}

bool SetSysctl(const std::string& path, const char* value) {
    if (WriteSysctl(path, value)) return true;
    Logf(LOG_ERR, kLog, "%s not set to %s: %s", path.c_str(), value, strerror(errno));
    return false;
}

// The first global IPv4 address of the interface, network byte order; 0 when it has none.
uint32_t IPv4Of(int ifindex) {
    std::vector<InterfaceAddress> all;
    if (!DumpAddresses(AF_INET, all)) return 0;
    for (const InterfaceAddress& address : all) {
        if (address.ifindex != ifindex || IsLinkLocal(address)) continue;
        uint32_t bits;
        std::memcpy(&bits, address.bytes.data(), sizeof bits);
        return bits;
    }
    return 0;
}

bool DeleteLink(Session& session, int ifindex, const std::string& name) {
    nl::Link link(rtnl_link_alloc());
    if (!link) return false;
    rtnl_link_set_ifindex(link.get(), ifindex);
    nl_msg* msg = nullptr;
    int built = rtnl_link_build_delete_request(link.get(), &msg);
    return Change(session, msg, built, "tunnel " + name + " not removed");
}

bool MakeTunnel(const TunnelPlan& plan) {
    Session session;
    if (!session.Ok()) return false;
    // A tunnel left by an earlier Create is replaced, so that a second Create leaves one router
    // with the current ends.
    if (std::optional<Link> old = FindLink(session, plan.name)) {
        if (old->kind != kSitKind) {
            Logf(LOG_ERR, kLog, "tunnel %s not made: an interface of another kind has its name", plan.name.c_str());
            return false;
        }
        DeleteLink(session, old->ifindex, plan.name);
    }
    nl_msg* request = TunnelRequest(plan);
    if (!session.Change(request, request != nullptr ? 0 : -NLE_NOMEM, "tunnel " + plan.name + " not made")) {
        if (session.Errno() == EOPNOTSUPP)
            Logf(LOG_ERR, kLog, "tunnel %s not made: the kernel lacks the sit tunnel type", plan.name.c_str());
        else
            Log(LOG_ERR, kLog, session.Error());
        return false;
    }
    std::optional<Link> made = FindLink(session, plan.name);
    nl::Link link(rtnl_link_alloc());
    nl::Link change(rtnl_link_alloc());
    if (!made || !link || !change) return false;
    rtnl_link_set_ifindex(link.get(), made->ifindex);
    rtnl_link_set_flags(change.get(), IFF_UP);
    nl_msg* msg = nullptr;
    int built = rtnl_link_build_change_request(link.get(), change.get(), 0, &msg);
    return Change(session, msg, built, "tunnel " + plan.name + " not up");
}

// The IPv6 default route through the tunnel, over `via` when given.
bool AddDefaultRoute(const std::string& tunnel, const char* via) {
    int ifindex = static_cast<int>(if_nametoindex(tunnel.c_str()));
    in6_addr gateway;
    nl::Addr next;
    if (via != nullptr && inet_pton(AF_INET6, via, &gateway) == 1) next = BuildAddress(AF_INET6, &gateway, sizeof gateway, 128);
    Session session;
    nl::Route route = nl::DefaultRoute(AF_INET6, ifindex, next.get(), kProtoTunnel, 0);
    if (ifindex == 0 || !session.Ok() || !route) return false;
    // A failure only costs `ip route` the protocol's name.
    if (!NameRouteProtocols()) Logf(LOG_WARNING, kLog, "%s not written: %s", kProtoNamesPath, strerror(errno));
    nl_msg* msg = nullptr;
    int built = rtnl_route_build_add_request(route.get(), NLM_F_CREATE, &msg);
    return Change(session, msg, built, "default route through " + tunnel + " not added", EEXIST);
}

bool IPv4Text(const std::string& text, uint32_t& bits) {
    in_addr address;
    if (inet_pton(AF_INET, text.c_str(), &address) != 1) return false;
    bits = address.s_addr;
    return true;
}

// What Create needs, gathered and checked by Prepare.
struct Plan {
    int ifindex = 0;
    TunnelPlan tunnel;
    unsigned __int128 tunnelAddress = 0;  // the tunnel's own address
    int tunnelLength = 0;
    std::string prefix;  // 6to4: the interface's new prefix
};

class Router : public tarn::network::ipv6::router::Router6 {
public:
    Router(std::string ifname, std::string kind) : ifname_(std::move(ifname)) { type = std::move(kind); }

    bool Destroy() override {
        if (type == kNative) {
            Logf(LOG_INFO, kLog, "native router of %s is not taken down: forwarding is shared by all interfaces",
                 ifname_.c_str());
            return false;
        }
        Session session;
        std::optional<Link> tunnel = FindLink(session, TunnelName());
        return tunnel && DeleteLink(session, tunnel->ifindex, TunnelName());
    }

    bool Reload() override { return Prepare() >= 0; }

    bool Create() override {
        Plan plan;
        if (!MakePlan(plan)) return false;
        bool made = type == kNative ? CreateNative() : CreateTunnel(plan);
        return made && SystemStore().Update(ifname_, [&](Document& document) {
            document.type = type;
            // A 6to4 prefix follows the IPv4 address and never runs out, whatever was delegated before.
            if (!plan.prefix.empty()) {
                document.prefix = plan.prefix;
                document.lifetimes.reset();
            }
            return true;
        });
    }

    int Prepare() override {
        Plan plan;
        return MakePlan(plan) ? 0 : -1;
    }

private:
    std::string TunnelName() const { return kTunnelPrefix + ifname_; }

    bool MakePlan(Plan& plan) const {
        plan.ifindex = static_cast<int>(if_nametoindex(ifname_.c_str()));
        if (plan.ifindex == 0) {
            Logf(LOG_ERR, kLog, "no interface %s for its IPv6 router", ifname_.c_str());
            return false;
        }
        if (type == kNative) return true;
        plan.tunnel.name = TunnelName();
        plan.tunnel.link = plan.ifindex;
        plan.tunnel.local = IPv4Of(plan.ifindex);
        if (!ValidIfname(plan.tunnel.name)) {
            Logf(LOG_ERR, kLog, "tunnel name %s is too long for the kernel", plan.tunnel.name.c_str());
            return false;
        }
        if (plan.tunnel.local == 0) {
            Logf(LOG_ERR, kLog, "%s has no IPv4 address for the tunnel's local end", ifname_.c_str());
            return false;
        }
        return type == k6to4 ? PlanSixToFour(plan) : PlanSixInFour(plan);
    }

    bool PlanSixToFour(Plan& plan) const {
        plan.prefix = SixToFourPrefix(plan.tunnel.local);
        std::optional<Prefix> own = ParsePrefix(plan.prefix);
        if (!own) return false;
        plan.tunnelAddress = own->bits | 1;
        plan.tunnelLength = kSixToFourTunnelLength;
        return true;
    }

    bool PlanSixInFour(Plan& plan) const {
        std::optional<Document> document = SystemStore().Load(ifname_);
        if (!document || !IPv4Text(document->remote, plan.tunnel.remote)) {
            Logf(LOG_ERR, kLog, "6in4 router of %s needs the remote end in its configuration", ifname_.c_str());
            return false;
        }
        const std::string& text = document->tunnelAddress;
        std::optional<Prefix> network = ParsePrefix(text);
        std::optional<unsigned __int128> address = ParseAddress(text.substr(0, text.find('/')));
        if (!network || !address) {
            Logf(LOG_ERR, kLog, "6in4 router of %s needs the tunnel address in its configuration", ifname_.c_str());
            return false;
        }
        plan.tunnelAddress = *address;
        plan.tunnelLength = network->length;
        return true;
    }

    // accept_ra 2 comes first: with forwarding on, an interface that only accepts router
    // advertisements when not forwarding would lose its own configuration. A tunnel of an
    // earlier 6in4 or 6to4 router goes, and its default route with it.
    bool CreateNative() const {
        Session session;
        std::optional<Link> tunnel = FindLink(session, TunnelName());
        if (tunnel && tunnel->kind == kSitKind && !DeleteLink(session, tunnel->ifindex, TunnelName())) return false;
        return SetSysctl(IPv6ConfPath(ifname_, "accept_ra"), "2") && SetSysctl(IPv6ConfPath("all", "forwarding"), "1");
    }

    bool CreateTunnel(const Plan& plan) const {
        if (!MakeTunnel(plan.tunnel)) return false;
        int tunnel = static_cast<int>(if_nametoindex(plan.tunnel.name.c_str()));
        Session session;
        return tunnel != 0 && ChangeAddress(session, tunnel, plan.tunnelAddress, plan.tunnelLength, true) &&
               AddDefaultRoute(plan.tunnel.name, type == k6to4 ? kSixToFourRelay : nullptr) &&
               SetSysctl(IPv6ConfPath("all", "forwarding"), "1");
    }

    std::string ifname_;
};

// The consumer's interface gets, renews or loses <prefix>::1/64; an owner without an interface
// has only its record.
bool OwnerAddress(const std::string& owner, const std::string& prefix, AddressOp op, const Lifetimes& lifetimes) {
    std::optional<unsigned __int128> subnet = Parse64(prefix);
    int ifindex = owner == kVpnOwner || !ValidIfname(owner) ? 0 : static_cast<int>(if_nametoindex(owner.c_str()));
    if (ifindex == 0) return true;
    // One socket for all the consumers of a prefix application.
    static Session session;
    return subnet && ChangeAddress(session, ifindex, *subnet | 1, kSubnetLength, op != AddressOp::kRemove, &lifetimes,
                                   op == AddressOp::kRenew);
}

}  // namespace

nl_msg* TunnelRequest(const TunnelPlan& plan) {
    nl::Link link(rtnl_link_sit_alloc());
    if (!link) return nullptr;
    rtnl_link_set_name(link.get(), plan.name.c_str());
    rtnl_link_sit_set_local(link.get(), plan.local);
    rtnl_link_sit_set_remote(link.get(), plan.remote);
    rtnl_link_sit_set_ttl(link.get(), kTunnelTtl);
    rtnl_link_sit_set_link(link.get(), static_cast<uint32_t>(plan.link));
    nl_msg* request = nullptr;
    if (rtnl_link_build_add_request(link.get(), NLM_F_CREATE | NLM_F_EXCL, &request) < 0) return nullptr;
    return request;
}

std::string SixToFourPrefix(uint32_t ipv4) {
    const auto* bytes = reinterpret_cast<const uint8_t*>(&ipv4);
    unsigned __int128 bits = 0x2002;
    for (int i = 0; i < 4; ++i) bits = bits << 8 | bytes[i];
    return AddressText(bits << 80) + "/" + std::to_string(kSixToFourLength);
}

Store& SystemStore() {
    static Store store(kRouter6StoreDir, kRouter6LockPath, OwnerAddress);
    return store;
}

}  // namespace tarnlinux::router6

namespace tarn::network::ipv6::router {

Router6Factory::Router6Factory() = default;
Router6Factory::~Router6Factory() = default;

// The second word names the connection type to set up; anything else makes no router.
Router6* Router6Factory::newRouterV6Instance(const std::string& ifname, const std::string& arg) {
    using namespace tarnlinux::router6;
    using tarnlinux::Logf;
    if (arg != kNative && arg != k6in4 && arg != k6to4) {
        Logf(LOG_ERR, kLog, "no IPv6 router of the type [%s]", arg.c_str());
        return nullptr;
    }
    if (!tarnlinux::ValidIfname(ifname)) {
        Logf(LOG_ERR, kLog, "no IPv6 router for the interface name [%s]", ifname.c_str());
        return nullptr;
    }
    return new (std::nothrow) Router(ifname, arg);
}

}  // namespace tarn::network::ipv6::router

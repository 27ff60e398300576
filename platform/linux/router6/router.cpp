// The IPv6 routers: native (forwarding on, router advertisements still accepted) and the
// 6in4 and 6to4 tunnels, made through rtnetlink and /proc/sys; and the consumers' addresses.
#include "linux.h"
#include "hostkit/netlink.h"
#include "hostkit/owned.h"
#include "router6/router6.h"
#include "tarnnetwork.h"

#include <arpa/inet.h>
#include <fcntl.h>
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

using nl::Connect;
using nl::Socket;

nl::Addr BuildAddress(int family, const void* bytes, size_t size, int length) {
    nl::Addr address(nl_addr_build(family, bytes, size));
    if (address) nl_addr_set_prefixlen(address.get(), length);
    return address;
}

// Adds or removes an IPv6 address; one already there (or already gone) counts as done.
bool ChangeAddress(int ifindex, unsigned __int128 bits, int length, bool add) {
    in6_addr local = ToIn6(bits);
    Socket sock = Connect();
    nl::Address address(rtnl_addr_alloc());
    nl::Addr bytes = BuildAddress(AF_INET6, &local, sizeof local, length);
    if (!sock || !address || !bytes) return false;
    rtnl_addr_set_ifindex(address.get(), ifindex);
    rtnl_addr_set_family(address.get(), AF_INET6);
    if (rtnl_addr_set_local(address.get(), bytes.get()) < 0) return false;
    rtnl_addr_set_prefixlen(address.get(), length);
    int result = add ? rtnl_addr_add(sock.get(), address.get(), 0) : rtnl_addr_delete(sock.get(), address.get(), 0);
    if (result >= 0 || result == (add ? -NLE_EXIST : -NLE_NOADDR)) return true;
    Log(LOG_ERR, "address %s/%d not %s: %s", AddressText(bits).c_str(), length, add ? "added" : "removed", nl_geterror(result));
    return false;
}

bool WriteSysctl(const std::string& path, const char* value) {
    Fd fd(open(path.c_str(), O_WRONLY | O_NOFOLLOW | O_CLOEXEC));
    size_t size = std::strlen(value);
    if (fd.Get() >= 0 && write(fd.Get(), value, size) == static_cast<ssize_t>(size)) return true;
    Log(LOG_ERR, "%s not set to %s: %s", path.c_str(), value, strerror(errno));
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

// Sends a request built elsewhere and waits for the kernel's answer: 0 or a libnl error.
int Send(nl_sock* sock, nl_msg* request) {
    int result = nl_send_auto(sock, request);
    return result < 0 ? result : nl_wait_for_ack(sock);
}

bool MakeTunnel(const TunnelPlan& plan) {
    Socket sock = Connect();
    if (!sock) return false;
    // A tunnel left by an earlier Create is replaced, so that a second Create leaves one router
    // with the current ends.
    nl::Link old;
    rtnl_link* found = nullptr;
    if (rtnl_link_get_kernel(sock.get(), 0, plan.name.c_str(), &found) >= 0) {
        old.reset(found);
        const char* kind = rtnl_link_get_type(old.get());
        if (kind == nullptr || std::strcmp(kind, kSitKind) != 0) {
            Log(LOG_ERR, "tunnel %s not made: an interface of another kind has its name", plan.name.c_str());
            return false;
        }
        rtnl_link_delete(sock.get(), old.get());
    }
    nl::Message request(TunnelRequest(plan));
    if (!request) return false;
    int result = Send(sock.get(), request.get());
    if (result == -NLE_OPNOTSUPP) {
        Log(LOG_ERR, "tunnel %s not made: the kernel lacks the sit tunnel type", plan.name.c_str());
        return false;
    }
    if (result < 0) {
        Log(LOG_ERR, "tunnel %s not made: %s", plan.name.c_str(), nl_geterror(result));
        return false;
    }
    nl::Link link;
    rtnl_link* made = nullptr;
    if (rtnl_link_get_kernel(sock.get(), 0, plan.name.c_str(), &made) < 0) return false;
    link.reset(made);
    nl::Link change(rtnl_link_alloc());
    if (!change) return false;
    rtnl_link_set_flags(change.get(), IFF_UP);
    result = rtnl_link_change(sock.get(), link.get(), change.get(), 0);
    if (result >= 0) return true;
    Log(LOG_ERR, "tunnel %s not up: %s", plan.name.c_str(), nl_geterror(result));
    return false;
}

// The IPv6 default route through the tunnel, over `via` when given.
bool AddDefaultRoute(const std::string& tunnel, const char* via) {
    int ifindex = static_cast<int>(if_nametoindex(tunnel.c_str()));
    in6_addr gateway;
    nl::Addr next;
    if (via != nullptr && inet_pton(AF_INET6, via, &gateway) == 1) next = BuildAddress(AF_INET6, &gateway, sizeof gateway, 128);
    Socket sock = Connect();
    nl::Route route = nl::DefaultRoute(AF_INET6, ifindex, next.get(), kProtoTunnel, 0);
    if (ifindex == 0 || !sock || !route) return false;
    // A failure only costs `ip route` the protocol's name.
    if (!NameRouteProtocols()) Log(LOG_WARNING, "%s not written: %s", kProtoNamesPath, strerror(errno));
    int result = rtnl_route_add(sock.get(), route.get(), NLM_F_CREATE);
    if (result >= 0 || result == -NLE_EXIST) return true;
    Log(LOG_ERR, "default route through %s not added: %s", tunnel.c_str(), nl_geterror(result));
    return false;
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
            Log(LOG_INFO, "native router of %s is not taken down: forwarding is shared by all interfaces", ifname_.c_str());
            return false;
        }
        Socket sock = Connect();
        rtnl_link* found = nullptr;
        if (!sock || rtnl_link_get_kernel(sock.get(), 0, TunnelName().c_str(), &found) < 0) return false;
        nl::Link link(found);
        return rtnl_link_delete(sock.get(), link.get()) >= 0;
    }

    bool Reload() override { return Prepare() >= 0; }

    bool Create() override {
        Plan plan;
        if (!MakePlan(plan)) return false;
        bool made = type == kNative ? CreateNative() : CreateTunnel(plan);
        return made && SystemStore().Update(ifname_, [&](Document& document) {
            document.type = type;
            if (!plan.prefix.empty()) document.prefix = plan.prefix;
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
            Log(LOG_ERR, "no interface %s for its IPv6 router", ifname_.c_str());
            return false;
        }
        if (type == kNative) return true;
        plan.tunnel.name = TunnelName();
        plan.tunnel.link = plan.ifindex;
        plan.tunnel.local = IPv4Of(plan.ifindex);
        if (!ValidIfname(plan.tunnel.name)) {
            Log(LOG_ERR, "tunnel name %s is too long for the kernel", plan.tunnel.name.c_str());
            return false;
        }
        if (plan.tunnel.local == 0) {
            Log(LOG_ERR, "%s has no IPv4 address for the tunnel's local end", ifname_.c_str());
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
            Log(LOG_ERR, "6in4 router of %s needs the remote end in its configuration", ifname_.c_str());
            return false;
        }
        const std::string& text = document->tunnelAddress;
        std::optional<Prefix> network = ParsePrefix(text);
        std::optional<unsigned __int128> address = ParseAddress(text.substr(0, text.find('/')));
        if (!network || !address) {
            Log(LOG_ERR, "6in4 router of %s needs the tunnel address in its configuration", ifname_.c_str());
            return false;
        }
        plan.tunnelAddress = *address;
        plan.tunnelLength = network->length;
        return true;
    }

    // accept_ra 2 comes first: with forwarding on, an interface that only accepts router
    // advertisements when not forwarding would lose its own configuration.
    bool CreateNative() const {
        return WriteSysctl("/proc/sys/net/ipv6/conf/" + ifname_ + "/accept_ra", "2") &&
               WriteSysctl("/proc/sys/net/ipv6/conf/all/forwarding", "1");
    }

    bool CreateTunnel(const Plan& plan) const {
        if (!MakeTunnel(plan.tunnel)) return false;
        int tunnel = static_cast<int>(if_nametoindex(plan.tunnel.name.c_str()));
        return tunnel != 0 && ChangeAddress(tunnel, plan.tunnelAddress, plan.tunnelLength, true) &&
               AddDefaultRoute(plan.tunnel.name, type == k6to4 ? kSixToFourRelay : nullptr) &&
               WriteSysctl("/proc/sys/net/ipv6/conf/all/forwarding", "1");
    }

    std::string ifname_;
};

// The consumer's interface gets or loses <prefix>::1/64; an owner without an interface has
// only its record.
bool OwnerAddress(const std::string& owner, const std::string& prefix, bool add) {
    std::optional<unsigned __int128> subnet = Parse64(prefix);
    int ifindex = owner == kVpnOwner ? 0 : static_cast<int>(if_nametoindex(owner.c_str()));
    if (ifindex == 0) return true;
    return subnet && ChangeAddress(ifindex, *subnet | 1, kSubnetLength, add);
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
    if (arg != kNative && arg != k6in4 && arg != k6to4) {
        Log(LOG_ERR, "no IPv6 router of the type [%s]", arg.c_str());
        return nullptr;
    }
    if (!tarnlinux::ValidIfname(ifname)) {
        Log(LOG_ERR, "no IPv6 router for the interface name [%s]", ifname.c_str());
        return nullptr;
    }
    return new (std::nothrow) Router(ifname, arg);
}

}  // namespace tarn::network::ipv6::router

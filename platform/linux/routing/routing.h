// Internals of the routing library on Linux (PolicyRoute, StaticRoute): the texts we accept,
// the state we keep, the kernel's routes and rules as plain values, and the plans that turn
// what the kernel has into what we want. Everything but the kernel and file calls is pure, so
// that it can be tested without a network namespace.
#ifndef TARN_PLATFORM_LINUX_ROUTING_H
#define TARN_PLATFORM_LINUX_ROUTING_H

#include "hostkit/netlink.h"
#include "hostkit/owned.h"
#include "tarnnetwork.h"

#include <json/value.h>
#include <linux/rtnetlink.h>
#include <sys/socket.h>

#include <array>
#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <vector>

namespace tarnroute {

// What we own on a host, named in linux/owned.h.
using tarnlinux::kFirstTable;
using tarnlinux::kLastTable;
using tarnlinux::kProtoPolicy;
using tarnlinux::kProtoStatic;
using tarnlinux::kSourcePriority;
using tarnlinux::kSuppressPriority;

// An address (full length) or a network of one family.
struct Prefix {
    int family = AF_UNSPEC;  // AF_INET or AF_INET6
    std::array<uint8_t, 16> bytes{};
    int length = 0;

    bool operator==(const Prefix& other) const {
        return family == other.family && bytes == other.bytes && length == other.length;
    }
    bool operator!=(const Prefix& other) const { return !(*this == other); }
    bool operator<(const Prefix& other) const {
        if (family != other.family) return family < other.family;
        if (bytes != other.bytes) return bytes < other.bytes;
        return length < other.length;
    }
};

int AddressBits(int family);
const char* FamilyName(int family);  // "ipv4", "ipv6"
// "192.0.2.1"
std::string AddressText(const Prefix& prefix);
// "default" for a zero-length network, "192.0.2.0/24", a host as its address alone.
std::string PrefixText(const Prefix& prefix);
// The network of `prefix` with `length` bits, host bits cleared.
Prefix NetworkOf(Prefix prefix, int length);

// Parsers: the value, or nullopt with the reason in `why`.
std::optional<Prefix> ParseAddress(int family, const std::string& text, std::string& why);
std::optional<int> NetmaskLength(const std::string& text, std::string& why);
std::optional<int> PrefixLength(int family, const std::string& text, std::string& why);
// "default", "address/length" (host bits must be clear) or a host address.
std::optional<Prefix> ParseDestination(int family, const std::string& text, std::string& why);
// One address or several joined by ",": all valid, duplicates dropped, order kept.
std::optional<std::vector<Prefix>> ParseSource(int family, const std::string& source, std::string& why);
// The destination of a policy rule: "NULL" address and "NULL" netmask (IPv4) or prefix length
// (IPv6) for the default route, otherwise the network of the address, host bits cleared.
std::optional<Prefix> RuleDestination(int family, const tarnnetwork::network::PolicyRouteRule& rule, std::string& why);
// The gateway of a policy rule; none for "NULL" or no text (the destination is on the link).
bool RuleGateway(int family, const tarnnetwork::network::PolicyRouteRule& rule, std::optional<Prefix>& gateway, std::string& why);
// A name the kernel would accept for an interface.
bool ValidInterfaceName(const std::string& name, std::string& why);

// One next hop of a route: a gateway, an interface or both.
struct Hop {
    std::optional<Prefix> gateway;
    int ifindex = 0;  // 0: none given (a wanted route leaves the choice to the kernel)
    bool operator==(const Hop& other) const { return gateway == other.gateway && ifindex == other.ifindex; }
};

// A route as the kernel has it, or as we want it.
struct Route {
    int family = AF_INET;
    uint32_t table = RT_TABLE_MAIN;
    Prefix dst;
    uint32_t metric = 0;
    uint8_t protocol = RTPROT_UNSPEC;
    uint8_t scope = RT_SCOPE_UNIVERSE;
    uint8_t type = RTN_UNICAST;
    std::vector<Hop> hops;
};

// The kernel's metric for a route given none: IPv6 routes get 1024.
uint32_t KernelMetric(int family, uint32_t metric);

// A rule as the kernel has it, or as we want it.
struct Rule {
    int family = AF_INET;
    uint32_t priority = 0;
    uint32_t table = 0;
    uint8_t protocol = RTPROT_UNSPEC;
    std::optional<Prefix> src;
    bool suppressDefault = false;  // suppress_prefixlength 0 (only when we make it)
};

// "default via 192.0.2.1 dev 3 table 20000 metric 0", for log lines.
std::string Describe(const Route& route);
std::string Describe(const Rule& rule);

// The changes that make the routes of one table and family, for the destinations in scope,
// what `want` says. Routes of other protocols are never touched: a wanted route whose place
// (destination and metric) one of them holds is a conflict.
struct RoutePlan {
    std::vector<Route> remove;
    std::vector<Route> add;
    std::vector<Route> replace;
    std::vector<Route> conflicts;
};
RoutePlan PlanRoutes(const std::vector<Route>& current, const std::vector<Route>& want, uint8_t protocol);

// The changes that make our source rules of `table` be one per address of `sources` (in that
// order), and our suppress rule of the family exist once.
struct RulePlan {
    std::vector<Rule> remove;
    std::vector<Rule> add;
};
RulePlan PlanSourceRules(const std::vector<Rule>& current, int family, uint32_t table, const std::vector<Prefix>& sources);
// Removal of our source rules of `table` only.
RulePlan PlanDisable(const std::vector<Rule>& current, int family, uint32_t table);

// The policy state: each interface's table, and per family its rules and source.
struct StoredRule {
    Prefix dst;
    std::optional<Prefix> gateway;  // none: the destination is on the link
};
struct FamilyState {
    bool enabled = false;
    std::vector<Prefix> source;
    std::map<std::string, StoredRule> rules;  // by service
};
struct InterfaceState {
    uint32_t table = 0;
    FamilyState ipv4;
    FamilyState ipv6;
    FamilyState& Of(int family) { return family == AF_INET ? ipv4 : ipv6; }
};
using PolicyState = std::map<std::string, InterfaceState>;  // by interface name

// The state file's text and back; nullopt with the reason when the text is not ours.
std::string StateText(const PolicyState& state);
std::optional<PolicyState> ParseState(const std::string& text, std::string& why);
// The interface's entry, given the lowest free table number when it has none; null when the
// range is used up.
InterfaceState* EntryFor(PolicyState& state, const std::string& ifname);
// True when the interface's table is enabled in no family and holds no stored rules: its entry
// may be dropped, which gives its number back.
bool Unused(const InterfaceState& entry);
// The rt_tables.d file: "20000 wan0" lines, ordered by number.
std::string TableNamesText(const PolicyState& state);
// Writes the names that `ip` shows for our protocols and, given a state, our tables. Only a
// convenience: a file that cannot be written (a read-only /etc/iproute2, a link in its place) is
// logged as a warning under `component`, and nothing else fails.
void NameForIp(const PolicyState* state, const char* component);

// The routes of one interface's table: its stored rules, then each connected network
// (`networks`) that no stored rule routes already.
std::vector<Route> TableRoutes(int family, uint32_t table, int ifindex, const FamilyState& state,
                               const std::vector<Prefix>& networks);

// A static route of the static route file.
struct StaticEntry {
    int line = 0;
    Route route;
    std::string ifname;  // "" when the kernel picks the interface
};
// The entries of the static route file's text, or nullopt with the reason (naming the line).
std::optional<std::vector<StaticEntry>> ParseStaticRoutes(const std::string& text, std::string& why);

// The route tables document: table name -> routes; `names` maps table numbers to names
// beside main and default, `devices` interface indexes to names. The local table is left out.
Json::Value TablesDocument(const std::vector<Route>& routes, const std::map<uint32_t, std::string>& names,
                           const std::map<int, std::string>& devices);

// One line of the routing code to the system log at LOG_ERR (LOG_WARNING): "<component>: <text>".
inline constexpr char kRoutingLog[] = "routing";
inline constexpr char kPolicyLog[] = "policy-route";
inline constexpr char kStaticLog[] = "static-route";
void LogError(const std::string& text, const char* component = kRoutingLog);

// Makes the kernel hold the stored tables, their rules and the source rules of every interface
// that is there (after a boot); false when a step failed, each logged.
bool RestoreTables();
void LogWarning(const std::string& text, const char* component);

// A session with the kernel over rtnetlink. Every failed change is logged with the operation,
// the object and the kernel's reason.
class Kernel {
public:
    Kernel();
    Kernel(const Kernel&) = delete;
    Kernel& operator=(const Kernel&) = delete;

    bool Ok() const { return session_.Ok(); }
    bool DumpRoutes(int family, std::vector<Route>& out);
    // Only the routes `filter` matches (one table, one protocol).
    bool DumpRoutes(int family, const tarnlinux::nl::RouteFilter& filter, std::vector<Route>& out);
    bool DumpRules(int family, std::vector<Rule>& out);
    bool AddRoute(const Route& route, bool replace);
    bool DeleteRoute(const Route& route);
    // Every step of the plan is tried; false when any failed (conflicts are logged as failures).
    bool Apply(const RoutePlan& plan);
    bool AddRule(const Rule& rule);
    bool DeleteRule(const Rule& rule);

private:
    // Sends one change and waits for the kernel's answer; logs `what` with the reason on failure.
    bool Send(::nl_msg* msg, int built, const std::string& what);
    template <typename T>
    bool Dump(int type, int family, std::vector<T>& out, const tarnlinux::nl::RouteFilter* filter = nullptr);

    tarnlinux::nl::Session session_;
};

}  // namespace tarnroute

#endif

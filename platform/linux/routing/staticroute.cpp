// Network library on Linux: the static routes of /etc/route-mgt/static-routes, made in the main
// table with our static protocol, and the route tables document.
#include "hostkit/atomicfile.h"
#include "hostkit/lock.h"
#include "hostkit/owned.h"
#include "routing/routing.h"
#include "tarnnetwork.h"

#include <net/if.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <set>
#include <sstream>

using namespace tarnroute;

namespace tarnroute {
namespace {

constexpr char kNone[] = "-";
constexpr size_t kStaticFields = 5;  // destination gateway interface metric family
constexpr uint32_t kMaxMetric = 4294967295u;

std::optional<int> FamilyNamed(const std::string& name) {
    if (name == FamilyName(AF_INET)) return AF_INET;
    if (name == FamilyName(AF_INET6)) return AF_INET6;
    return std::nullopt;
}

std::optional<uint32_t> Metric(const std::string& text) {
    if (text.empty() || text.size() > 10 || text.find_first_not_of("0123456789") != std::string::npos) return std::nullopt;
    unsigned long long value = std::stoull(text);
    if (value > kMaxMetric) return std::nullopt;
    return static_cast<uint32_t>(value);
}

// One line's words, or the reason it is not a static route.
std::optional<StaticEntry> ParseStaticLine(const std::vector<std::string>& words, std::string& why) {
    if (words.size() != kStaticFields) {
        why = "expected destination, gateway, interface, metric and family";
        return std::nullopt;
    }
    std::optional<int> family = FamilyNamed(words[4]);
    if (!family) {
        why = "family \"" + words[4] + "\" is neither ipv4 nor ipv6";
        return std::nullopt;
    }
    StaticEntry entry;
    Route& route = entry.route;
    route.family = *family;
    route.protocol = kProtoStatic;
    std::optional<Prefix> dst = ParseDestination(*family, words[0], why);
    if (!dst) return std::nullopt;
    route.dst = *dst;
    Hop hop;
    if (words[1] != kNone) {
        hop.gateway = ParseAddress(*family, words[1], why);
        if (!hop.gateway) return std::nullopt;
    }
    if (words[2] != kNone && !ValidInterfaceName(words[2], why)) return std::nullopt;
    if (words[2] != kNone) entry.ifname = words[2];
    if (!hop.gateway && entry.ifname.empty()) {
        why = "a gateway, an interface or both are needed";
        return std::nullopt;
    }
    std::optional<uint32_t> metric = Metric(words[3]);
    if (!metric) {
        why = "metric \"" + words[3] + "\" is not a number from 0 to 4294967295";
        return std::nullopt;
    }
    route.metric = KernelMetric(*family, *metric);
    route.scope = *family == AF_INET && !hop.gateway ? RT_SCOPE_LINK : RT_SCOPE_UNIVERSE;
    route.hops.push_back(hop);
    return entry;
}

// The kernel's own protocols that iproute2 names, then ours.
const tarnlinux::RouteProtocol kKernelProtocols[] = {
    {RTPROT_REDIRECT, "redirect"}, {RTPROT_KERNEL, "kernel"}, {RTPROT_BOOT, "boot"},
    {RTPROT_STATIC, "static"},     {RTPROT_RA, "ra"},         {RTPROT_DHCP, "dhcp"}};

std::string ProtocolName(uint8_t protocol) {
    for (const tarnlinux::RouteProtocol& row : kKernelProtocols) {
        if (row.number == protocol) return row.name;
    }
    for (const tarnlinux::RouteProtocol& row : tarnlinux::kRouteProtocols) {
        if (row.number == protocol) return row.name;
    }
    return std::to_string(protocol);
}

std::string ScopeName(uint8_t scope) {
    switch (scope) {
        case RT_SCOPE_UNIVERSE:
            return "global";
        case RT_SCOPE_SITE:
            return "site";
        case RT_SCOPE_LINK:
            return "link";
        case RT_SCOPE_HOST:
            return "host";
        case RT_SCOPE_NOWHERE:
            return "nowhere";
        default:
            return std::to_string(scope);
    }
}

std::string TypeName(uint8_t type) {
    switch (type) {
        case RTN_UNREACHABLE:
            return "unreachable";
        case RTN_BLACKHOLE:
            return "blackhole";
        case RTN_PROHIBIT:
            return "prohibit";
        case RTN_THROW:
            return "throw";
        case RTN_MULTICAST:
            return "multicast";
        default:
            return std::to_string(type);
    }
}

std::string TableName(uint32_t table, const std::map<uint32_t, std::string>& names) {
    if (table == RT_TABLE_MAIN) return "main";
    if (table == RT_TABLE_DEFAULT) return "default";
    auto named = names.find(table);
    return named != names.end() ? named->second : std::to_string(table);
}

// Member names as static strings: the document holds thousands of members, and JsonCpp
// copies every other key.
const Json::StaticString kDstKey("dst");
const Json::StaticString kGatewayKey("gateway");
const Json::StaticString kDevKey("dev");
const Json::StaticString kNexthopsKey("nexthops");
const Json::StaticString kMetricKey("metric");
const Json::StaticString kProtocolKey("protocol");
const Json::StaticString kScopeKey("scope");
const Json::StaticString kTypeKey("type");

void PutHop(Json::Value& value, const Hop& hop, const std::map<int, std::string>& devices) {
    if (hop.gateway) value[kGatewayKey] = AddressText(*hop.gateway);
    if (hop.ifindex == 0) return;
    auto device = devices.find(hop.ifindex);
    value[kDevKey] = device != devices.end() ? device->second : std::to_string(hop.ifindex);
}

Json::Value RouteValue(const Route& route, const std::map<int, std::string>& devices) {
    Json::Value value(Json::objectValue);
    value[kDstKey] = PrefixText(route.dst);
    if (route.hops.size() == 1) PutHop(value, route.hops.front(), devices);
    if (route.hops.size() > 1) {
        Json::Value& hops = value[kNexthopsKey] = Json::Value(Json::arrayValue);
        for (const Hop& hop : route.hops) PutHop(hops.append(Json::Value(Json::objectValue)), hop, devices);
    }
    value[kMetricKey] = route.metric;
    value[kProtocolKey] = ProtocolName(route.protocol);
    value[kScopeKey] = ScopeName(route.scope);
    if (route.type != RTN_UNICAST) value[kTypeKey] = TypeName(route.type);
    return value;
}

}  // namespace

std::optional<std::vector<StaticEntry>> ParseStaticRoutes(const std::string& text, std::string& why) {
    std::vector<StaticEntry> entries;
    std::map<std::pair<Prefix, uint32_t>, int> lineOf;  // by destination and metric
    std::istringstream lines(text);
    std::string line;
    for (int number = 1; std::getline(lines, line); ++number) {
        std::istringstream words(line.substr(0, line.find('#')));
        std::vector<std::string> fields;
        for (std::string word; words >> word;) fields.push_back(word);
        if (fields.empty()) continue;
        std::optional<StaticEntry> entry = ParseStaticLine(fields, why);
        if (entry) {
            auto [earlier, fresh] = lineOf.emplace(std::make_pair(entry->route.dst, entry->route.metric), number);
            if (!fresh) why = "same destination and metric as line " + std::to_string(earlier->second);
            if (!fresh) entry.reset();
        }
        if (!entry) {
            why = "line " + std::to_string(number) + ": " + why;
            return std::nullopt;
        }
        entry->line = number;
        entries.push_back(std::move(*entry));
    }
    return entries;
}

Json::Value TablesDocument(const std::vector<Route>& routes, const std::map<uint32_t, std::string>& names,
                           const std::map<int, std::string>& devices) {
    std::vector<const Route*> sorted;
    for (const Route& route : routes) {
        if (route.table != RT_TABLE_LOCAL) sorted.push_back(&route);
    }
    std::stable_sort(sorted.begin(), sorted.end(), [](const Route* a, const Route* b) {
        if (a->table != b->table) return a->table < b->table;
        if (a->dst != b->dst) return a->dst < b->dst;
        return a->metric < b->metric;
    });
    Json::Value tables(Json::objectValue);
    Json::Value* table = nullptr;
    for (size_t i = 0; i < sorted.size(); ++i) {
        if (i == 0 || sorted[i]->table != sorted[i - 1]->table)
            table = &(tables[TableName(sorted[i]->table, names)] = Json::Value(Json::arrayValue));
        table->append(RouteValue(*sorted[i], devices));
    }
    return tables;
}

}  // namespace tarnroute

namespace tarnnetwork::network {
namespace {

constexpr int kDone = 0;
constexpr int kFailed = -1;

bool ReadStaticRoutes(std::vector<StaticEntry>& entries) {
    std::string text;
    std::string why;
    if (tarnlinux::ReadRegular(tarnlinux::kStaticRoutesPath, text) == tarnlinux::ReadResult::kRefused) {
        LogError(std::string("cannot read ") + tarnlinux::kStaticRoutesPath + ": " + std::strerror(errno), kStaticLog);
        return false;
    }
    std::optional<std::vector<StaticEntry>> parsed = ParseStaticRoutes(text, why);
    if (!parsed) {
        LogError(tarnlinux::kStaticRoutesPath + (": " + why) + "; nothing changed", kStaticLog);
        return false;
    }
    entries = std::move(*parsed);
    return true;
}

// Makes our static routes of the family in the main table be those of the file. An entry that
// cannot be made is logged and skipped; the others are still made.
bool Refresh(Kernel& kernel, int family, const std::vector<StaticEntry>& entries) {
    bool ok = true;
    std::vector<Route> want;
    std::map<std::string, int> indexes;  // one lookup per interface, however many lines name it
    for (StaticEntry entry : entries) {
        if (entry.route.family != family) continue;
        if (!entry.ifname.empty()) {
            auto known = indexes.emplace(entry.ifname, 0);
            if (known.second) known.first->second = static_cast<int>(if_nametoindex(entry.ifname.c_str()));
            entry.route.hops.front().ifindex = known.first->second;
        }
        if (!entry.ifname.empty() && entry.route.hops.front().ifindex == 0) {
            LogError("line " + std::to_string(entry.line) + ": no interface " + entry.ifname + ", skipped", kStaticLog);
            ok = false;
            continue;
        }
        want.push_back(entry.route);
    }
    std::vector<Route> main;
    if (!kernel.DumpRoutes(family, tarnlinux::nl::RouteFilter{RT_TABLE_MAIN, 0}, main)) return false;
    return kernel.Apply(PlanRoutes(main, want, kProtoStatic)) && ok;
}

// Under the lock, so that two refreshes at once do not both add what they found missing.
int RefreshFamilies(std::initializer_list<int> families) {
    tarnlinux::HeldLock lock(tarnlinux::kStaticLockPath);
    std::string why;
    if (!lock.Take(why)) {
        LogError(std::string("cannot take the lock ") + tarnlinux::kStaticLockPath + ": " + why, kStaticLog);
        return kFailed;
    }
    std::vector<StaticEntry> entries;
    if (!ReadStaticRoutes(entries)) return kFailed;
    NameForIp(nullptr, kStaticLog);
    Kernel kernel;
    bool ok = true;
    for (int family : families) ok = Refresh(kernel, family, entries) && ok;
    return ok ? kDone : kFailed;
}

// Our tables by interface name; a state file that cannot be read only leaves them unnamed.
std::map<uint32_t, std::string> PolicyTableNames() {
    std::map<uint32_t, std::string> names;
    std::string text;
    std::string why;
    if (tarnlinux::ReadRegular(tarnlinux::kPolicyStatePath, text) != tarnlinux::ReadResult::kRead) return names;
    std::optional<PolicyState> state = ParseState(text, why);
    if (!state) return names;
    for (const auto& [ifname, entry] : *state) names[entry.table] = ifname;
    return names;
}

std::map<int, std::string> DeviceNames(const std::vector<Route>& routes) {
    std::map<int, std::string> devices;
    for (const Route& route : routes) {
        for (const Hop& hop : route.hops) {
            char name[IF_NAMESIZE] = "";
            if (hop.ifindex == 0 || devices.count(hop.ifindex) != 0) continue;
            if (if_indextoname(static_cast<unsigned>(hop.ifindex), name) != nullptr) devices[hop.ifindex] = name;
        }
    }
    return devices;
}

}  // namespace

StaticRoute::StaticRoute() = default;
StaticRoute::~StaticRoute() = default;

int StaticRoute::GetRouteTables(const IP_TYPE& type, Json::Value& tables) {
    if (type != IPV4 && type != IPV6) {
        LogError("GetRouteTables: unknown address family " + std::to_string(static_cast<int>(type)), kStaticLog);
        return kFailed;
    }
    Kernel kernel;
    std::vector<Route> routes;
    if (!kernel.DumpRoutes(type == IPV4 ? AF_INET : AF_INET6, routes)) return kFailed;
    tables = TablesDocument(routes, PolicyTableNames(), DeviceNames(routes));
    return kDone;
}

int StaticRoute::RefreshRules() { return RefreshFamilies({AF_INET, AF_INET6}); }

int StaticRoute::RefreshIpv4Rules() { return RefreshFamilies({AF_INET}); }

int StaticRoute::RefreshIpv6Rules() { return RefreshFamilies({AF_INET6}); }

}  // namespace tarnnetwork::network

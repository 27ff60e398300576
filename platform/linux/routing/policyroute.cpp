// Network library on Linux: the per-interface policy route tables. The state file says which
// table each interface has, its stored rules and its sources; each call changes the state under
// the state lock and then makes the kernel match it, so reruns find nothing to do.
#include "hostkit/atomicfile.h"
#include "hostkit/interfaces.h"
#include "hostkit/lock.h"
#include "routing/routing.h"
#include "tarnnetwork.h"

#include <net/if.h>

#include <algorithm>
#include <filesystem>
#include <cerrno>
#include <cstring>

using namespace tarnroute;

namespace tarnnetwork::network {
namespace {

constexpr int kDone = 0;
constexpr int kFailed = -1;

int Refuse(const std::string& operation, const std::string& why) {
    LogError(operation + ": " + why, kPolicyLog);
    return kFailed;
}

std::optional<int> FamilyOf(IP_TYPE type, std::string& why) {
    if (type == IPV4) return AF_INET;
    if (type == IPV6) return AF_INET6;
    why = "unknown address family " + std::to_string(static_cast<int>(type));
    return std::nullopt;
}

// The state read under the state lock, held until the session ends.
class Session {
public:
    Session() : lock_(tarnlinux::kPolicyLockPath) {}

    bool Open(std::string& why) {
        if (!lock_.Take(why)) {
            why = std::string("cannot take the lock ") + tarnlinux::kPolicyLockPath + ": " + why;
            return false;
        }
        RemoveStaleTemporaries();
        std::string text;
        tarnlinux::ReadResult read = tarnlinux::ReadRegular(tarnlinux::kPolicyStatePath, text);
        if (read == tarnlinux::ReadResult::kRefused) {
            why = std::string("cannot read ") + tarnlinux::kPolicyStatePath + ": " + std::strerror(errno);
            return false;
        }
        if (read == tarnlinux::ReadResult::kMissing) return true;
        std::optional<PolicyState> parsed = ParseState(text, why);
        if (!parsed) why = std::string(tarnlinux::kPolicyStatePath) + " left as it is, it cannot be read: " + why;
        if (parsed) state = std::move(*parsed);
        return parsed.has_value();
    }

    // The state, then the names that iproute2 shows for it (a convenience that cannot fail a call).
    bool Save(std::string& why) {
        if (!tarnlinux::UpdateFile(tarnlinux::kPolicyStatePath, StateText(state))) {
            why = std::string("cannot write ") + tarnlinux::kPolicyStatePath + ": " + std::strerror(errno);
            return false;
        }
        NameForIp(&state, kPolicyLog);
        return true;
    }

    PolicyState state;

private:
    // Rewrites run under the lock that is held now, so a temporary file older than the longest
    // wait for it was left by a kill.
    static void RemoveStaleTemporaries() {
        for (const char* path : {tarnlinux::kPolicyStatePath, tarnlinux::kTableNamesPath}) {
            std::string file = std::filesystem::path(path).filename();
            tarnlinux::RemoveStaleTemporaries(
                std::filesystem::path(path).parent_path(), [&](const std::string& target) { return target == file; },
                tarnlinux::kLockWait);
        }
    }

    tarnlinux::HeldLock lock_;
};

std::vector<Prefix> ConnectedNetworks(int family, int ifindex) {
    std::vector<tarnlinux::InterfaceAddress> all;
    std::vector<Prefix> networks;
    if (!tarnlinux::DumpAddresses(family, all)) return networks;
    for (const tarnlinux::InterfaceAddress& address : all) {
        if (address.ifindex != ifindex || address.family != family || !tarnlinux::NamesNetwork(address)) continue;
        networks.push_back(NetworkOf(Prefix{family, address.bytes, AddressBits(family)}, address.prefixlen));
    }
    return networks;
}

// Makes the interface's table hold its stored rules and its connected networks, and nothing
// else of ours. Every step is tried; the result says whether all of them went through.
bool SyncTable(Kernel& kernel, int family, int ifindex, const InterfaceState& entry) {
    std::vector<Route> current;
    if (!kernel.DumpRoutes(family, tarnlinux::nl::RouteFilter{entry.table, 0}, current)) return false;
    const FamilyState& state = family == AF_INET ? entry.ipv4 : entry.ipv6;
    RoutePlan plan =
        PlanRoutes(current, TableRoutes(family, entry.table, ifindex, state, ConnectedNetworks(family, ifindex)), kProtoPolicy);
    // Routes on the link first, so that gateways are reachable when their routes come.
    std::stable_partition(plan.add.begin(), plan.add.end(), [](const Route& r) { return !r.hops.front().gateway; });
    return kernel.Apply(plan);
}

// Removes our routes of both families from a table whose number was given back, so that the
// next interface to get it starts empty.
bool FlushTable(Kernel& kernel, uint32_t table) {
    bool ok = true;
    for (int family : {AF_INET, AF_INET6}) {
        std::vector<Route> routes;
        ok = kernel.DumpRoutes(family, tarnlinux::nl::RouteFilter{table, kProtoPolicy}, routes) && ok;
        for (const Route& route : routes) ok = kernel.DeleteRoute(route) && ok;
    }
    return ok;
}

// Drops the interface's entry, and so gives its table number back, when nothing uses it any
// more; the number of the table dropped, or 0.
uint32_t FreeIfUnused(PolicyState& state, const std::string& interface) {
    auto entry = state.find(interface);
    if (entry == state.end() || !Unused(entry->second)) return 0;
    uint32_t table = entry->second.table;
    state.erase(entry);
    return table;
}

bool ApplyRules(Kernel& kernel, const RulePlan& plan) {
    bool ok = true;
    for (const Rule& rule : plan.remove) ok = kernel.DeleteRule(rule) && ok;
    for (const Rule& rule : plan.add) ok = kernel.AddRule(rule) && ok;
    return ok;
}

int InterfaceIndex(const std::string& ifname) { return static_cast<int>(if_nametoindex(ifname.c_str())); }

// The first steps of every call: the family and the interface name checked, the state read
// under the lock.
std::optional<int> Start(const IP_TYPE& type, const std::string& interface, Session& session, std::string& why) {
    std::optional<int> family = FamilyOf(type, why);
    if (!family || !ValidInterfaceName(interface, why) || !session.Open(why)) return std::nullopt;
    return family;
}

// After a rule was deleted: an interface that is not there gets its rules when its table is
// enabled again.
int SyncIfPresent(int family, const std::string& interface, const InterfaceState& entry) {
    int ifindex = InterfaceIndex(interface);
    if (ifindex == 0) return kDone;
    Kernel kernel;
    return SyncTable(kernel, family, ifindex, entry) ? kDone : kFailed;
}

// Puts the table back as `before` had it; without `before` (a new entry) our routes leave it.
void Restore(Kernel& kernel, int family, int ifindex, uint32_t table, const std::optional<InterfaceState>& before) {
    if (before) {
        SyncTable(kernel, family, ifindex, *before);
    } else {
        FlushTable(kernel, table);
    }
}

// A new rule reaches the kernel before the state file, so that one the kernel refuses (a gateway
// off the link) is never stored to fail every later call on the table: the table is put back
// and nothing is stored. An interface that is not there gets the rule when it is enabled again.
int CommitRule(Session& session, int family, const std::string& interface, const std::optional<InterfaceState>& before,
               const std::string& operation) {
    const InterfaceState& after = session.state.at(interface);
    int ifindex = InterfaceIndex(interface);
    Kernel kernel;
    if (ifindex != 0 && !SyncTable(kernel, family, ifindex, after)) {
        Restore(kernel, family, ifindex, after.table, before);
        return Refuse(operation, "the kernel refused the table's routes; the rule is not stored");
    }
    std::string why;
    if (session.Save(why)) return kDone;
    if (ifindex != 0) Restore(kernel, family, ifindex, after.table, before);
    return Refuse(operation, why);
}

}  // namespace

PolicyRoute::PolicyRoute() = default;
PolicyRoute::~PolicyRoute() = default;

int PolicyRoute::AddRule(const PolicyRouteRule& rule) {
    std::string operation = "AddRule " + rule.service + " on " + rule.interface;
    std::string why;
    Session session;
    std::optional<int> family = Start(rule.type, rule.interface, session, why);
    if (!family) return Refuse(operation, why);
    if (rule.service.empty()) return Refuse(operation, "the service name is empty");
    std::optional<Prefix> dst = RuleDestination(*family, rule, why);
    std::optional<Prefix> gateway;
    if (!dst || !RuleGateway(*family, rule, gateway, why)) return Refuse(operation, why);
    auto found = session.state.find(rule.interface);
    std::optional<InterfaceState> before;
    if (found != session.state.end()) before = found->second;
    InterfaceState* entry = EntryFor(session.state, rule.interface);
    if (entry == nullptr) return Refuse(operation, "every table number from 20000 to 20999 is taken");
    FamilyState& state = entry->Of(*family);
    for (const auto& [service, stored] : state.rules) {
        if (service != rule.service && stored.dst == *dst)
            return Refuse(operation, PrefixText(*dst) + " is already the destination of the rule of service " + service);
    }
    state.rules[rule.service] = StoredRule{*dst, gateway};
    return CommitRule(session, *family, rule.interface, before, operation);
}

int PolicyRoute::DeleteRule(const IP_TYPE& type, const std::string& service, const std::string& interface) {
    std::string operation = "DeleteRule " + service + " on " + interface;
    std::string why;
    Session session;
    std::optional<int> family = Start(type, interface, session, why);
    if (!family) return Refuse(operation, why);
    auto entry = session.state.find(interface);
    if (entry == session.state.end() || entry->second.Of(*family).rules.erase(service) == 0) return kDone;
    InterfaceState kept = entry->second;
    uint32_t freed = FreeIfUnused(session.state, interface);
    if (!session.Save(why)) return Refuse(operation, why);
    if (freed == 0) return SyncIfPresent(*family, interface, kept);
    Kernel kernel;
    return FlushTable(kernel, freed) ? kDone : kFailed;
}

int PolicyRoute::EnableTable(const IP_TYPE& type, const std::string& interface, const std::string& source) {
    std::string operation = "EnableTable " + interface;
    std::string why;
    Session session;
    std::optional<int> family = Start(type, interface, session, why);
    if (!family) return Refuse(operation, why);
    std::optional<std::vector<Prefix>> sources = ParseSource(*family, source, why);
    if (!sources) return Refuse(operation, "source \"" + source + "\": " + why);
    int ifindex = InterfaceIndex(interface);
    if (ifindex == 0) return Refuse(operation, "no such interface");
    InterfaceState* entry = EntryFor(session.state, interface);
    if (entry == nullptr) return Refuse(operation, "every table number from 20000 to 20999 is taken");
    entry->Of(*family).enabled = true;
    entry->Of(*family).source = *sources;
    if (!session.Save(why)) return Refuse(operation, why);
    Kernel kernel;
    std::vector<Rule> rules;
    bool ok = SyncTable(kernel, *family, ifindex, *entry);
    ok = kernel.DumpRules(*family, rules) && ApplyRules(kernel, PlanSourceRules(rules, *family, entry->table, *sources)) && ok;
    return ok ? kDone : kFailed;
}

int PolicyRoute::DisableTable(const IP_TYPE& type, const std::string& interface) {
    std::string operation = "DisableTable " + interface;
    std::string why;
    Session session;
    std::optional<int> family = Start(type, interface, session, why);
    if (!family) return Refuse(operation, why);
    auto entry = session.state.find(interface);
    if (entry == session.state.end()) return kDone;
    entry->second.Of(*family).enabled = false;
    entry->second.Of(*family).source.clear();
    uint32_t table = entry->second.table;
    uint32_t freed = FreeIfUnused(session.state, interface);
    if (!session.Save(why)) return Refuse(operation, why);
    Kernel kernel;
    std::vector<Rule> rules;
    bool ok = kernel.DumpRules(*family, rules) && ApplyRules(kernel, PlanDisable(rules, *family, table));
    if (freed != 0) ok = FlushTable(kernel, freed) && ok;
    return ok ? kDone : kFailed;
}

}  // namespace tarnnetwork::network

namespace tarnroute {

bool RestoreTables() {
    using namespace tarnnetwork::network;
    std::string why;
    Session session;
    if (!session.Open(why)) {
        LogError("RestoreTables: " + why, kPolicyLog);
        return false;
    }
    Kernel kernel;
    bool ok = true;
    for (auto& [ifname, entry] : session.state) {
        int ifindex = InterfaceIndex(ifname);
        if (ifindex == 0) continue;  // its table comes back when it is enabled again
        for (int family : {AF_INET, AF_INET6}) {
            const FamilyState& state = entry.Of(family);
            if (!state.enabled && state.rules.empty()) continue;
            ok = SyncTable(kernel, family, ifindex, entry) && ok;
            std::vector<Rule> rules;
            if (state.enabled)
                ok = kernel.DumpRules(family, rules) &&
                     ApplyRules(kernel, PlanSourceRules(rules, family, entry.table, state.source)) && ok;
        }
    }
    return ok;
}

}  // namespace tarnroute

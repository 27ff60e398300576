// What to change so that the kernel's routes and rules become the ones we want, touching only
// what carries our protocol: reruns find nothing to do, and others' routes and rules stay.
#include "routing/routing.h"

#include <algorithm>
#include <map>
#include <set>
#include <utility>

namespace tarnroute {
namespace {

// The kernel keeps one route per destination and metric in a table.
using Place = std::pair<Prefix, uint32_t>;
Place PlaceOf(const Route& route) { return {route.dst, route.metric}; }

// A wanted hop without an interface takes whichever the kernel chose.
bool HopMatches(const Hop& want, const Hop& have) {
    return want.gateway == have.gateway && (want.ifindex == 0 || want.ifindex == have.ifindex);
}

bool SameRoute(const Route& want, const Route& have) {
    return want.protocol == have.protocol && want.scope == have.scope && want.type == have.type &&
           want.hops.size() == have.hops.size() && std::equal(want.hops.begin(), want.hops.end(), have.hops.begin(), HopMatches);
}

bool Ours(const Rule& rule, int family) { return rule.protocol == kProtoPolicy && rule.family == family; }

bool IsSourceRuleOf(const Rule& rule, int family, uint32_t table) {
    return Ours(rule, family) && rule.priority == kSourcePriority && rule.table == table;
}

}  // namespace

// Maps by place, so that a table of thousands of routes plans in n log n.
RoutePlan PlanRoutes(const std::vector<Route>& current, const std::vector<Route>& want, uint8_t protocol) {
    RoutePlan plan;
    std::map<Place, const Route*> held;
    for (const Route& have : current) held.emplace(PlaceOf(have), &have);
    std::set<Place> wanted;
    for (const Route& route : want) {
        wanted.insert(PlaceOf(route));
        auto found = held.find(PlaceOf(route));
        if (found == held.end()) {
            plan.add.push_back(route);
        } else if (found->second->protocol != protocol) {
            plan.conflicts.push_back(route);
        } else if (!SameRoute(route, *found->second)) {
            plan.replace.push_back(route);
        }
    }
    for (const Route& have : current) {
        if (have.protocol == protocol && wanted.count(PlaceOf(have)) == 0) plan.remove.push_back(have);
    }
    return plan;
}

RulePlan PlanSourceRules(const std::vector<Rule>& current, int family, uint32_t table, const std::vector<Prefix>& sources) {
    RulePlan plan;
    bool suppressSeen = false;
    const std::set<Prefix> wanted(sources.begin(), sources.end());
    std::set<Prefix> kept;
    for (const Rule& rule : current) {
        if (Ours(rule, family) && rule.priority == kSuppressPriority) {
            if (suppressSeen) plan.remove.push_back(rule);
            suppressSeen = true;
            continue;
        }
        if (!IsSourceRuleOf(rule, family, table)) continue;
        // A second rule of the same address is removed too.
        if (!rule.src || wanted.count(*rule.src) == 0 || !kept.insert(*rule.src).second) plan.remove.push_back(rule);
    }
    if (!suppressSeen) plan.add.push_back(Rule{family, kSuppressPriority, RT_TABLE_MAIN, kProtoPolicy, std::nullopt, true});
    for (const Prefix& source : sources) {
        if (kept.count(source) == 0) plan.add.push_back(Rule{family, kSourcePriority, table, kProtoPolicy, source, false});
    }
    return plan;
}

RulePlan PlanDisable(const std::vector<Rule>& current, int family, uint32_t table) {
    RulePlan plan;
    for (const Rule& rule : current) {
        if (IsSourceRuleOf(rule, family, table)) plan.remove.push_back(rule);
    }
    return plan;
}

std::vector<Route> TableRoutes(int family, uint32_t table, int ifindex, const FamilyState& state,
                               const std::vector<Prefix>& networks) {
    std::vector<Route> routes;
    auto make = [&](const Prefix& dst, const std::optional<Prefix>& gateway) {
        Route route;
        route.family = family;
        route.table = table;
        route.dst = dst;
        route.metric = KernelMetric(family, 0);
        route.protocol = kProtoPolicy;
        // The kernel reports every IPv6 route with universe scope.
        route.scope = family == AF_INET && !gateway ? RT_SCOPE_LINK : RT_SCOPE_UNIVERSE;
        route.hops.push_back(Hop{gateway, ifindex});
        return route;
    };
    std::set<Prefix> placed;
    for (const auto& [service, rule] : state.rules) {
        if (placed.insert(rule.dst).second) routes.push_back(make(rule.dst, rule.gateway));
    }
    for (const Prefix& network : networks) {
        if (network.length < AddressBits(family) && placed.insert(network).second) routes.push_back(make(network, std::nullopt));
    }
    return routes;
}

}  // namespace tarnroute

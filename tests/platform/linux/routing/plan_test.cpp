// What the routing library changes in the kernel: only what carries its protocol, nothing on a
// rerun, and a table's routes from its stored rules and connected networks.
#include "routing/routing.h"

#include <gtest/gtest.h>

namespace {

using namespace tarnroute;

constexpr uint32_t kTable = 20003;
constexpr int kWan = 4;

Prefix P(int family, const char* text) {
    std::string why;
    std::optional<Prefix> prefix = ParseDestination(family, text, why);
    EXPECT_TRUE(prefix) << why;
    return prefix.value_or(Prefix{});
}

Route R(const char* dst, const char* gateway, uint8_t protocol, uint32_t metric = 0, int ifindex = kWan) {
    Route route;
    route.table = kTable;
    route.dst = P(AF_INET, dst);
    route.metric = metric;
    route.protocol = protocol;
    route.scope = gateway ? RT_SCOPE_UNIVERSE : RT_SCOPE_LINK;
    route.hops.push_back(Hop{gateway ? std::optional<Prefix>(P(AF_INET, gateway)) : std::nullopt, ifindex});
    return route;
}

std::vector<std::string> Texts(const std::vector<Route>& routes) {
    std::vector<std::string> texts;
    for (const Route& route : routes) texts.push_back(PrefixText(route.dst) + " m" + std::to_string(route.metric));
    return texts;
}

// The kernel keeps one route per destination and metric: ours goes beside another's at another
// metric, and ours as it is stays.
TEST(PlanRoutes, OursBesideAnothersAtAnotherMetric) {
    std::vector<Route> current = {R("default", "192.0.2.1", kProtoPolicy), R("198.51.100.0/24", "192.0.2.1", RTPROT_BOOT, 7)};
    std::vector<Route> want = {R("default", "192.0.2.1", kProtoPolicy), R("198.51.100.0/24", "192.0.2.1", kProtoPolicy, 8)};
    RoutePlan plan = PlanRoutes(current, want, kProtoPolicy);
    EXPECT_EQ(Texts(plan.add), (std::vector<std::string>{"198.51.100.0/24 m8"}));
    EXPECT_TRUE(plan.replace.empty() && plan.remove.empty() && plan.conflicts.empty());
}

TEST(PlanRoutes, NothingWhenTheKernelMatches) {
    std::vector<Route> want = {R("default", "192.0.2.1", kProtoStatic, 0, 0), R("192.0.2.0/25", nullptr, kProtoStatic)};
    // A wanted route without an interface matches whichever the kernel chose.
    std::vector<Route> current = {R("default", "192.0.2.1", kProtoStatic, 0, kWan + 3), R("192.0.2.0/25", nullptr, kProtoStatic)};
    RoutePlan plan = PlanRoutes(current, want, kProtoStatic);
    EXPECT_TRUE(plan.add.empty() && plan.replace.empty() && plan.remove.empty() && plan.conflicts.empty());
    current[1].hops.front().ifindex = kWan + 1;
    EXPECT_EQ(Texts(PlanRoutes(current, want, kProtoStatic).replace), (std::vector<std::string>{"192.0.2.0/25 m0"}));
}

Rule SourceRule(const char* src, uint32_t table, uint8_t protocol = kProtoPolicy) {
    return Rule{AF_INET, kSourcePriority, table, protocol, P(AF_INET, src), false};
}

std::vector<std::string> Texts(const std::vector<Rule>& rules) {
    std::vector<std::string> texts;
    for (const Rule& rule : rules) texts.push_back(std::to_string(rule.priority) + (rule.src ? " " + PrefixText(*rule.src) : ""));
    return texts;
}

TEST(PlanSourceRules, OneRulePerAddressBelowOneSuppressRule) {
    Rule suppress{AF_INET, kSuppressPriority, RT_TABLE_MAIN, kProtoPolicy, std::nullopt, true};
    std::vector<Rule> current = {
        suppress,
        suppress,                                       // a second one goes
        SourceRule("192.0.2.10", kTable),               // kept
        SourceRule("192.0.2.10", kTable),               // twice: the second goes
        SourceRule("192.0.2.99", kTable),               // no longer in the source
        SourceRule("192.0.2.11", kTable, RTPROT_BOOT),  // someone else's, same place
        Rule{AF_INET6, kSuppressPriority, RT_TABLE_MAIN, kProtoPolicy, std::nullopt, true},
    };
    std::vector<Prefix> sources = {P(AF_INET, "192.0.2.11"), P(AF_INET, "192.0.2.10"), P(AF_INET, "192.0.2.12")};
    RulePlan plan = PlanSourceRules(current, AF_INET, kTable, sources);
    EXPECT_EQ(Texts(plan.remove), (std::vector<std::string>{"20000", "20100 192.0.2.10", "20100 192.0.2.99"}));
    EXPECT_EQ(Texts(plan.add), (std::vector<std::string>{"20100 192.0.2.11", "20100 192.0.2.12"}));
}

TEST(TableRoutes, StoredRulesThenConnectedNetworks) {
    FamilyState state;
    state.rules["multi-gateway"] = StoredRule{P(AF_INET, "default"), P(AF_INET, "192.0.2.1")};
    state.rules["vpn"] = StoredRule{P(AF_INET, "192.0.2.0/26"), P(AF_INET, "192.0.2.1")};
    std::vector<Route> routes = TableRoutes(
        AF_INET, kTable, kWan, state, {P(AF_INET, "192.0.2.0/26"), P(AF_INET, "198.51.100.0/24"), P(AF_INET, "203.0.113.9")});
    EXPECT_EQ(Texts(routes), (std::vector<std::string>{"default m0", "192.0.2.0/26 m0", "198.51.100.0/24 m0"}));
    EXPECT_EQ(routes[0].scope, RT_SCOPE_UNIVERSE);
    EXPECT_EQ(routes[2].scope, RT_SCOPE_LINK);

    // As the kernel reports IPv6 routes: metric 1024, universe scope.
    std::vector<Route> v6 = TableRoutes(AF_INET6, kTable, kWan, FamilyState{}, {P(AF_INET6, "2001:db8:1::/64")});
    ASSERT_EQ(v6.size(), 1u);
    EXPECT_EQ(v6[0].metric, 1024u);
    EXPECT_EQ(v6[0].scope, RT_SCOPE_UNIVERSE);
}

}  // namespace

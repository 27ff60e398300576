// The routing library's files: the policy state, the table names, the static route file, the
// route tables document.
#include "routing/routing.h"

#include <gtest/gtest.h>

#include <chrono>

namespace {

using namespace tarnroute;

Prefix P(int family, const char* text) {
    std::string why;
    return ParseDestination(family, text, why).value_or(Prefix{});
}

TEST(State, TableNumbers) {
    PolicyState state;
    InterfaceState* wan = EntryFor(state, "wan0");
    ASSERT_NE(wan, nullptr);
    EXPECT_EQ(EntryFor(state, "1234")->table, kFirstTable + 1);
    EXPECT_EQ(EntryFor(state, "wan0"), wan);
    // A freed number is taken again; names iproute2 would misread keep their number.
    state.erase("wan0");
    EXPECT_EQ(EntryFor(state, "wan1")->table, kFirstTable);
    EXPECT_EQ(TableNamesText(state).substr(TableNamesText(state).find('\n') + 1), "20000 wan1\n");
}

TEST(State, RangeUsedUp) {
    PolicyState state;
    for (uint32_t i = kFirstTable; i <= kLastTable; ++i) ASSERT_NE(EntryFor(state, "if" + std::to_string(i)), nullptr);
    EXPECT_EQ(EntryFor(state, "one-more"), nullptr);
}

TEST(State, RefusedTexts) {
    std::string why;
    const char* family = R"("ipv4": {"enabled": true, "source": ["192.0.2.1"], "rules": {"x": {"dst": "default"}}})";
    EXPECT_TRUE(ParseState(std::string(R"({"interfaces": {"wan0": {"table": 20000, )") + family + "}}}", why)) << why;
    for (
        const char* text :
        {"{", R"({"interfaces": []})", R"({"interfaces": {"wan0": {"table": 19999}}})",
         R"({"interfaces": {"wan0": {"table": 20000}, "wan1": {"table": 20000}}})",
         R"({"interfaces": {"a/b": {"table": 20000}}})",
         R"({"interfaces": {"wan0": {"table": 20000, "ipv4": {"enabled": 1, "source": [], "rules": {}}}}})",
         R"({"interfaces": {"wan0": {"table": 20000, "ipv6": {"enabled": true, "source": ["192.0.2.1"], "rules": {}}}}})",
         R"({"interfaces": {"wan0": {"table": 20000, "ipv6": {"enabled": true, "source": [], "rules": {"x": {"dst": "2001:db8::1/64"}}}}}})"})
        EXPECT_FALSE(ParseState(text, why)) << text;
}

TEST(StaticFile, Parse) {
    const std::pair<const char*, const char*> cases[] = {
        // text, "dst metric;" per entry (nullptr: refused)
        {"", ""},
        {"# only a comment\n\n", ""},
        {"2001:db8::/32 - lan0 0 ipv6\n203.0.113.5 192.0.2.1 - 4294967295 ipv4", "2001:db8::/32 1024;203.0.113.5 4294967295;"},
        {"default 192.0.2.1 wan0 100 ipv4 x\n", nullptr},
        {"default 192.0.2.1 wan0 100 inet\n", nullptr},
        {"default - - 0 ipv4\n", nullptr},
        {"default 2001:db8::1 - 0 ipv4\n", nullptr},
        {"203.0.113.1/24 - lan0 0 ipv4\n", nullptr},
        {"default 192.0.2.1 - -1 ipv4\n", nullptr},
        {"default 192.0.2.1 - 0 ipv4\ndefault 192.0.2.2 - 0 ipv4\n", nullptr},
        {"default 192.0.2.1 - 0 ipv4\ndefault 192.0.2.2 - 1 ipv4\n", "default 0;default 1;"},
        {"::/0 2001:db8::1 - 0 ipv6\ndefault 2001:db8::2 - 1024 ipv6\n", nullptr},
    };
    for (const auto& [text, expected] : cases) {
        std::string why, routes = "refused";
        std::optional<std::vector<StaticEntry>> entries = ParseStaticRoutes(text, why);
        if (entries) routes.clear();
        for (const StaticEntry& e : entries.value_or(std::vector<StaticEntry>{}))
            routes += PrefixText(e.route.dst) + " " + std::to_string(e.route.metric) + ";";
        EXPECT_EQ(routes, expected ? expected : "refused") << text << why;
    }
}

// Duplicates are found by lookup: 80,000 lines take well under a second, not minutes.
TEST(StaticFile, LinearInLines) {
    std::string text;
    for (int i = 0; i < 80000; ++i)
        text += "2001:db8:" + std::to_string(i / 10000) + ":" + std::to_string(i % 10000) + "::/64 - lan0 0 ipv6\n";
    std::string why;
    auto start = std::chrono::steady_clock::now();
    ASSERT_EQ(ParseStaticRoutes(text, why).value_or(std::vector<StaticEntry>{}).size(), 80000u) << why;
    std::chrono::duration<double> took = std::chrono::steady_clock::now() - start;
    EXPECT_LT(took.count(), 4.0);
}

TEST(TablesDocument, NamedSortedWithoutLocal) {
    auto route = [](uint32_t table, const char* dst, int ifindex, uint32_t metric) {
        Route r;
        r.table = table;
        r.dst = P(AF_INET, dst);
        r.metric = metric;
        r.protocol = RTPROT_KERNEL;
        r.hops.push_back(Hop{std::nullopt, ifindex});
        return r;
    };
    Route multipath = route(20001, "default", 3, 0);
    multipath.hops = {Hop{P(AF_INET, "192.0.2.1"), 3}, Hop{P(AF_INET, "192.0.2.2"), 9}};
    multipath.protocol = kProtoPolicy;
    std::vector<Route> routes = {route(RT_TABLE_MAIN, "198.51.100.0/24", 3, 0),
                                 route(RT_TABLE_LOCAL, "192.0.2.10", 3, 0),
                                 route(RT_TABLE_MAIN, "192.0.2.0/24", 3, 5),
                                 route(RT_TABLE_MAIN, "192.0.2.0/24", 3, 1),
                                 route(20002, "default", 3, 0),
                                 multipath};
    Json::Value doc = TablesDocument(routes, {{20001, "wan0"}}, {{3, "wan0"}});
    EXPECT_EQ(doc.getMemberNames(), (std::vector<std::string>{"20002", "main", "wan0"}));
    ASSERT_EQ(doc["main"].size(), 3u);
    EXPECT_EQ(doc["main"][0]["dst"], "192.0.2.0/24");
    EXPECT_EQ(doc["main"][0]["metric"].asUInt(), 1u);
    EXPECT_EQ(doc["wan0"][0]["nexthops"][1]["dev"], "9");
    EXPECT_EQ(doc["wan0"][0]["nexthops"][1]["gateway"], "192.0.2.2");
}

}  // namespace

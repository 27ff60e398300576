// The uplink tracking's rules. Rounds to states: each row a start, a run of rounds (G good, B bad)
// and the state it must end in, with how many times the state changed on the way. The tracking
// file: each row a document and the place and reason it is refused for ("" when it is taken);
// then what an interface takes from the top of the file.
#include "rounds.h"
#include "trackconfig.h"

#include "hostkit/json.h"

#include <gtest/gtest.h>

namespace {

using namespace tarnnetd;

struct Row {
    const char* what;
    Reach start;
    const char* rounds;
    Reach end;
    int changes;
};

const tarnnetd::Rules kRules{3, 5};

const Row kRows[] = {
    {"first good round of an unknown uplink", Reach::kUnknown, "G", Reach::kOnline, 1},
    {"unknown stays unknown short of down", Reach::kUnknown, "BB", Reach::kUnknown, 0},
    {"down bad rounds in a row", Reach::kOnline, "BBB", Reach::kOffline, 1},
    {"a good round breaks the bad run", Reach::kOnline, "BBGBB", Reach::kOnline, 0},
    {"offline needs up good rounds", Reach::kOffline, "GGGG", Reach::kOffline, 0},
    {"up good rounds in a row", Reach::kOffline, "GGGGG", Reach::kOnline, 1},
    {"a bad round restarts the good run", Reach::kOffline, "GGGGBGGGG", Reach::kOffline, 0},
    {"bad rounds past down change nothing more", Reach::kOnline, "BBBBBB", Reach::kOffline, 1},
    {"leave, then come back", Reach::kOnline, "BBBGGGGG", Reach::kOnline, 2},
};

TEST(Rounds, RulesTable) {
    for (const Row& row : kRows) {
        tarnnetd::Progress progress;
        progress.reach = row.start;
        int changes = 0;
        for (const char* round = row.rounds; *round != '\0'; ++round) changes += CountRound(progress, *round == 'G', kRules);
        EXPECT_EQ(progress.reach, row.end) << row.what;
        EXPECT_EQ(changes, row.changes) << row.what;
    }
}

bool Parse(const std::string& text, TrackConfig& config, std::string& error) {
    Json::Value document;
    EXPECT_TRUE(tarnlinux::ParseStrictJson(text, document)) << text;
    return ParseTrackConfig(document, config, error);
}

TEST(TrackConfig, Refusals) {
    const std::pair<const char*, const char*> rows[] = {
        {R"({})", ""},
        {R"({"interval": 0.05})", "interval: must be a number of seconds from 0.1 to 60"},
        {R"({"timeout": 1})", "timeout: must not be longer than interval"},
        {R"({"interval": 0.2})", ""},  // the default timeout shrinks to it
        {R"({"down": 1.5})", "down: must be a whole number from 1 to 1000"},
        {R"({"up": 0})", "up: must be a whole number from 1 to 1000"},
        {R"({"probe": 1})", "probe: unknown member"},
        {R"({"interfaces": []})", "interfaces: must be an object"},
        {R"({"interfaces": {"wan/1": {}}})", "interfaces.wan/1: not an interface name"},
        {R"({"interfaces": {"wan1": []}})", "interfaces.wan1: must be an object"},
        {R"({"interfaces": {"wan1": {"target": []}}})", "interfaces.wan1.target: unknown member"},
        {R"({"interfaces": {"wan1": {"targets": ["fe80::1", "x"]}}})",
         "interfaces.wan1.targets[1]: must be an IPv4 or IPv6 address"},
    };
    for (const auto& [text, reason] : rows) {
        TrackConfig config;
        std::string error;
        EXPECT_EQ(Parse(text, config, error), *reason == '\0') << text;
        EXPECT_EQ(error, reason) << text;
    }
}

TEST(TrackConfig, InterfacesTakeTheTopRules) {
    TrackConfig config;
    std::string error;
    ASSERT_TRUE(
        Parse(R"({"down": 3, "reliability": 2, "interfaces": {"wan1": {"up": 4, "targets": ["192.0.2.9", "2001:db8::9"]}}})",
              config, error))
        << error;
    const UplinkConfig& wan1 = config.interfaces.at("wan1");
    EXPECT_EQ(wan1.rules.down, 3);
    EXPECT_EQ(wan1.rules.up, 4);
    EXPECT_EQ(wan1.reliability, 2);
    EXPECT_EQ(wan1.targets[0], std::vector<std::string>{"192.0.2.9"});
    EXPECT_EQ(wan1.targets[1], std::vector<std::string>{"2001:db8::9"});
}

}  // namespace

// The tracking file's rules: each row a document and the place and reason it is refused for
// ("" when it is taken); then what an interface takes from the top of the file.
#include "trackconfig.h"

#include "hostkit/json.h"

#include <gtest/gtest.h>

namespace {

using namespace tarnnetd;

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

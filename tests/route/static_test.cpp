#include "blackbox/harness.h"

#include <string>

namespace {

using blackbox::Case;

// Every static route action makes one manager and releases it on every path.
std::string Static(const std::string& calls = "") {
    return R"({"op":"StaticRoute.StaticRoute"})"
           "\n" +
           calls + "\n" + R"({"op":"StaticRoute.~StaticRoute"})";
}

const char* const kTables = R"({"route_tables": {"0": {"main": ["192.0.2.0/24"]}, "1": {"main": ["2001:db8::/64"]}}})";

class RouteTables : public ::testing::TestWithParam<Case> {};

TEST_P(RouteTables, Row) { blackbox::Check(GetParam()); }

INSTANTIATE_TEST_SUITE_P(
    Rows, RouteTables,
    ::testing::Values(
        Case{"IPv4",
             {"--get-route-tables", "-4"},
             kTables,
             "{\n\t\"main\" : \n\t[\n\t\t\"192.0.2.0/24\"\n\t]\n}\n\n",
             "",
             0,
             Static(R"({"op":"StaticRoute.GetRouteTables","args":[0,null],"result":0})")},
        Case{"IPv6IgnoresExtra",
             {"--get-route-tables", "-6x", "eth0"},
             kTables,
             "{\n\t\"main\" : \n\t[\n\t\t\"2001:db8::/64\"\n\t]\n}\n\n",
             "",
             0,
             Static(R"({"op":"StaticRoute.GetRouteTables","args":[1,null],"result":0})")},
        Case{"NothingFilledPrintsNull", {"--get-route-tables", "-4"}, "", "null\n\n", "", 0, "", blackbox::Journal::Ignore},
        Case{"FailurePrintsNothing",
             {"--get-route-tables", "-4"},
             R"({"route_tables": {"0": {"main": []}}, "results": {"StaticRoute.GetRouteTables": [-1]}})",
             "",
             "Failed to GetRouteTables\n",
             255,
             Static(R"({"op":"StaticRoute.GetRouteTables","args":[0,null],"result":-1})")},
        Case{"NoFamily", {"--get-route-tables"}, kTables, "", "argc too small: 2\n", 255, Static()},
        Case{"BadFamily", {"--get-route-tables", "-5"}, kTables, "", "arg1 error: need a type\n", 255, Static()}),
    blackbox::CaseName());

std::string Refreshed(const char* op, int result = 0) {
    return Static(std::string(R"({"op":"StaticRoute.)") + op + R"(","result":)" + std::to_string(result) + "}");
}

std::string Failing(const char* op) { return std::string(R"({"results": {"StaticRoute.)") + op + R"(": [-1]}})"; }

class StaticRules : public ::testing::TestWithParam<Case> {};

TEST_P(StaticRules, Row) { blackbox::Check(GetParam()); }

INSTANTIATE_TEST_SUITE_P(
    Rows, StaticRules,
    ::testing::Values(
        Case{"NoneIsBothInOneCall", {"--refresh-static-route-rules"}, "", "", "", 0, Refreshed("RefreshRules")},
        Case{"IPv4", {"--refresh-static-route-rules", "-4"}, "", "", "", 0, Refreshed("RefreshIpv4Rules")},
        Case{"IPv6IgnoresExtra", {"--refresh-static-route-rules", "-6", "-4"}, "", "", "", 0, Refreshed("RefreshIpv6Rules")},
        Case{"FortySixIsIPv4", {"--refresh-static-route-rules", "-46"}, "", "", "", 0, Refreshed("RefreshIpv4Rules")},
        Case{"AllRefreshesNothing", {"--refresh-static-route-rules", "all"}, "", "", "", 0, Static()},
        Case{"EmptyIsNotNone", {"--refresh-static-route-rules", ""}, "", "", "", 0, Static()},
        Case{"BothFail",
             {"--refresh-static-route-rules"},
             Failing("RefreshRules"),
             "",
             "Failed to refresh static route rules\n",
             255,
             Refreshed("RefreshRules", -1)},
        Case{"IPv4Fails",
             {"--refresh-static-route-rules", "-4"},
             Failing("RefreshIpv4Rules"),
             "",
             "Failed to refresh ipv4 static route rules\n",
             255,
             Refreshed("RefreshIpv4Rules", -1)},
        Case{"IPv6Fails",
             {"--refresh-static-route-rules", "-6"},
             Failing("RefreshIpv6Rules"),
             "",
             "Failed to refresh ipv6 static route rules\n",
             255,
             Refreshed("RefreshIpv6Rules", -1)}),
    blackbox::CaseName());

}  // namespace

#include "blackbox/harness.h"

namespace {

using blackbox::Case;

std::string Call(const std::string& op, const std::string& args, int result = 0) {
    return R"({"op":")" + op + R"(","args":[)" + args + R"(],"result":)" + std::to_string(result) + "}\n";
}
std::string Logged(const std::string& text) { return R"({"op":"syslog","args":[3,"tarnnetdtool:N )" + text + "\"]}\n"; }
std::string Failing(const std::string& op, int result = -1) {
    return R"({"results": {")" + op + R"(": [)" + std::to_string(result) + "]}}";
}
std::string Refreshed(const char* op, int result = 0) {
    return R"({"op":"StaticRoute.)" + std::string(op) + R"(","result":)" + std::to_string(result) + "}";
}

const std::vector<std::string> kAddV4 = {"--add-policy-route-rule", "-4",       "vpn", "eth0", "192.0.2.0",
                                         "255.255.255.0",           "192.0.2.1"};
const std::string kRuleV4 =
    R"({"type":0,"service":"vpn","interface":"eth0","ip":"192.0.2.0","mask":"255.255.255.0","prefix_length":"","gateway":"192.0.2.1"})";
const std::vector<std::string> kRefresh = {"--refresh-route-table", "-4", "eth0", "192.0.2.10,192.0.2.11"};
const std::string kEnable4 = R"(0,"eth0","192.0.2.10,192.0.2.11")";
const char* const kTables = R"({"route_tables": {"0": {"main": ["192.0.2.0/24"]}, "1": {"main": ["2001:db8::/64"]}}})";
const std::string kGet = "StaticRoute.GetRouteTables";

// clang-format off
BLACKBOX_SUITE(RouteRows);
INSTANTIATE_TEST_SUITE_P(Policy, RouteRows, ::testing::Values(
    Case{"AddPositiveIsSuccess", kAddV4, Failing("PolicyRoute.AddRule", 1), "", "", 0, Call("PolicyRoute.AddRule", kRuleV4, 1)},
    Case{"AddFailsLogsNoForgedLine", {"--add-policy-route-rule", "-4", "vpn", "eth0\nx", "192.0.2.0", "255.255.255.0", "192.0.2.1"}, Failing("PolicyRoute.AddRule"), "", "Failed to add policy route rule for eth0\nx\n", 255, Call("PolicyRoute.AddRule", R"({"type":0,"service":"vpn","interface":"eth0\nx","ip":"192.0.2.0","mask":"255.255.255.0","prefix_length":"","gateway":"192.0.2.1"})", -1) + Logged("Failed to add policy route rule for eth0\\\\x0ax-table")},
    Case{"AddOneShort", {"--add-policy-route-rule", "-4", "vpn", "eth0", "192.0.2.0", "255.255.255.0"}, "", "", "argc too small: 7\n", 255, ""},
    Case{"DelFailsInAddWording", {"--del-policy-route-rule", "-4", "vpn", "eth1"}, Failing("PolicyRoute.DeleteRule", -3), "", "Failed to add policy route rule for eth1\n", 255, Call("PolicyRoute.DeleteRule", R"(0,"vpn","eth1")", -3) + Logged("Failed to add policy route rule for eth1-table")},
    Case{"DelCountBeforeFamily", {"--del-policy-route-rule", "vpn", "eth1"}, "", "", "argc too small: 4\n", 255, ""},
    Case{"EnableFailsEchoesFamily", {"--enable-route-table", "-4x", "eth0", "192.0.2.10"}, Failing("PolicyRoute.EnableTable"), "", "Failed to enable route table for eth0 in IPV-4x\n", 255, Call("PolicyRoute.EnableTable", R"(0,"eth0","192.0.2.10")", -1) + Logged("Failed to enable route table for [eth0] in IPV-4x")},
    Case{"EnableNeedsSource", {"--enable-route-table", "-4", "eth0"}, "", "", "argc too small: 4\n", 255, ""},
    Case{"DisableIgnoresSource", {"--disable-route-table", "-6", "eth0", "192.0.2.10"}, "", "", "", 0, Call("PolicyRoute.DisableTable", R"(1,"eth0")")},
    Case{"DisableNeedsInterface", {"--disable-route-table", "-6"}, "", "", "argc too small: 3\n", 255, ""},
    Case{"RefreshStopsAtDisable", kRefresh, Failing("PolicyRoute.DisableTable"), "", "Failed to disable route table for eth0 in IPV-4\n", 255, Call("PolicyRoute.DisableTable", R"(0,"eth0")", -1) + Logged("Failed to disable route table for [eth0] in IPV-4")},
    Case{"RefreshEnableFails", kRefresh, Failing("PolicyRoute.EnableTable"), "", "Failed to enable route table for eth0 in IPV-4\n", 255, Call("PolicyRoute.DisableTable", R"(0,"eth0")") + Call("PolicyRoute.EnableTable", kEnable4, -1) + Logged("Failed to enable route table for [eth0] in IPV-4")},
    Case{"RefreshNeedsSource", {"--refresh-route-table", "-4", "eth0"}, "", "", "argc too small: 4\n", 255, ""}),
    blackbox::CaseName());

// A family that is neither "-4" nor "-6", even empty, refreshes nothing and is no error.
INSTANTIATE_TEST_SUITE_P(Static, RouteRows, ::testing::Values(
    Case{"TablesIPv6", {"--get-route-tables", "-6x", "eth0"}, kTables, "{\n\t\"main\" : \n\t[\n\t\t\"2001:db8::/64\"\n\t]\n}\n\n", "", 0, Call(kGet, "1,null")},
    Case{"TablesNothingFilled", {"--get-route-tables", "-4"}, "", "null\n\n", "", 0, Call(kGet, "0,null")},
    Case{"TablesFailure", {"--get-route-tables", "-4"}, R"({"route_tables": {"0": {}}, "results": {"StaticRoute.GetRouteTables": [-1]}})", "", "Failed to GetRouteTables\n", 255, Call(kGet, "0,null", -1)},
    Case{"TablesNoFamily", {"--get-route-tables"}, kTables, "", "argc too small: 2\n", 255, ""},
    Case{"TablesBadFamily", {"--get-route-tables", "-5"}, kTables, "", "arg1 error: need a type\n", 255, ""},
    Case{"RulesIPv4", {"--refresh-static-route-rules", "-46"}, "", "", "", 0, Refreshed("RefreshIpv4Rules")},
    Case{"RulesIPv6", {"--refresh-static-route-rules", "-6", "-4"}, "", "", "", 0, Refreshed("RefreshIpv6Rules")},
    Case{"RulesOtherWord", {"--refresh-static-route-rules", "all"}, "", "", "", 0, ""},
    Case{"RulesEmptyWord", {"--refresh-static-route-rules", ""}, "", "", "", 0, ""},
    Case{"RulesBothFail", {"--refresh-static-route-rules"}, Failing("StaticRoute.RefreshRules"), "", "Failed to refresh static route rules\n", 255, Refreshed("RefreshRules", -1)},
    Case{"RulesIPv4Fails", {"--refresh-static-route-rules", "-4"}, Failing("StaticRoute.RefreshIpv4Rules"), "", "Failed to refresh ipv4 static route rules\n", 255, Refreshed("RefreshIpv4Rules", -1)},
    Case{"RulesIPv6Fails", {"--refresh-static-route-rules", "-6"}, Failing("StaticRoute.RefreshIpv6Rules"), "", "Failed to refresh ipv6 static route rules\n", 255, Refreshed("RefreshIpv6Rules", -1)}),
    blackbox::CaseName());
// clang-format on

}  // namespace

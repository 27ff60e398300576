#include "blackbox/harness.h"

#include <string>
#include <vector>

namespace {

using blackbox::Case;

// Every policy action makes one manager and releases it on every path.
std::string Policy(const std::string& calls = "") {
    return R"({"op":"PolicyRoute.PolicyRoute"})"
           "\n" +
           calls + "\n" + R"({"op":"PolicyRoute.~PolicyRoute"})";
}

std::string Logged(const std::string& text) { return R"({"op":"syslog","args":[3,"tarnnetdtool:N )" + text + R"("]})"; }

// Stopped by the argument rules: no library call and nothing logged.
Case Refused(const char* name, const std::vector<std::string>& args, const char* err) {
    return Case{name, args, "", "", err, 255, Policy()};
}

const std::vector<std::string> kAddV4 = {"--add-policy-route-rule", "-4",       "vpn", "eth0", "192.0.2.0",
                                         "255.255.255.0",           "192.0.2.1"};
const char* const kRuleV4 =
    R"({"type":0,"service":"vpn","interface":"eth0","ip":"192.0.2.0","mask":"255.255.255.0","prefix_length":"","gateway":"192.0.2.1"})";
const char* const kAddFailed = "Failed to add policy route rule for eth0-table";

class PolicyRule : public ::testing::TestWithParam<Case> {};

TEST_P(PolicyRule, Row) { blackbox::Check(GetParam()); }

INSTANTIATE_TEST_SUITE_P(
    Rows, PolicyRule,
    ::testing::Values(
        Case{"AddIPv4FillsMask", kAddV4, "", "", "", 0,
             Policy(std::string(R"({"op":"PolicyRoute.AddRule","args":[)") + kRuleV4 + R"(],"result":0})")},
        Case{"AddIPv6FillsPrefixLengthAndIgnoresExtra",
             {"--add-policy-route-rule", "-6x", "vpn", "eth1", "2001:db8:1::", "64", "2001:db8::1", "extra"},
             "",
             "",
             "",
             0,
             Policy(R"({"op":"PolicyRoute.AddRule","args":[{"type":1,"service":"vpn","interface":"eth1","ip":"2001:db8:1::",)"
                    R"("mask":null,"prefix_length":"64","gateway":"2001:db8::1"}],"result":0})")},
        Case{"AddPositiveResultIsSuccess", kAddV4, R"({"results": {"PolicyRoute.AddRule": [1]}})", "", "", 0,
             Policy(R"({"op":"PolicyRoute.AddRule","result":1})"), blackbox::Journal::Contains},
        Case{"AddFails", kAddV4, R"({"results": {"PolicyRoute.AddRule": [-1]}})", "",
             "Failed to add policy route rule for eth0\n", 255,
             Policy(std::string(R"({"op":"PolicyRoute.AddRule","args":[)") + kRuleV4 + R"(],"result":-1})" + "\n" +
                    Logged(kAddFailed))},
        Refused("AddOneShort", {"--add-policy-route-rule", "-4", "vpn", "eth0", "192.0.2.0", "255.255.255.0"},
                "argc too small: 7\n"),
        Refused("AddBadFamily", {"--add-policy-route-rule", "-5", "vpn", "eth0", "192.0.2.0", "255.255.255.0", "192.0.2.1"},
                "arg1 error: need a type\n"),
        Case{"DelIPv6",
             {"--del-policy-route-rule", "-6", "vpn", "eth1"},
             "",
             "",
             "",
             0,
             Policy(R"({"op":"PolicyRoute.DeleteRule","args":[1,"vpn","eth1"],"result":0})")},
        Case{"DelFailsInAddWording",
             {"--del-policy-route-rule", "-4", "vpn", "eth1"},
             R"({"results": {"PolicyRoute.DeleteRule": [-3]}})",
             "",
             "Failed to add policy route rule for eth1\n",
             255,
             Policy(R"({"op":"PolicyRoute.DeleteRule","args":[0,"vpn","eth1"],"result":-3})"
                    "\n" +
                    Logged("Failed to add policy route rule for eth1-table"))},
        Refused("DelCountBeforeFamily", {"--del-policy-route-rule", "vpn"}, "argc too small: 3\n"),
        Refused("DelOneShort", {"--del-policy-route-rule", "-4", "vpn"}, "argc too small: 4\n"),
        Refused("DelBadFamily", {"--del-policy-route-rule", "4", "vpn", "eth1"}, "arg1 error: need a type\n")),
    blackbox::CaseName());

const char* const kDisable4 = R"({"op":"PolicyRoute.DisableTable","args":[0,"eth0"],"result":0})";
const char* const kEnable4 = R"({"op":"PolicyRoute.EnableTable","args":[0,"eth0","192.0.2.10,192.0.2.11"],"result":0})";

class PolicyTable : public ::testing::TestWithParam<Case> {};

TEST_P(PolicyTable, Row) { blackbox::Check(GetParam()); }

INSTANTIATE_TEST_SUITE_P(
    Rows, PolicyTable,
    ::testing::Values(
        Case{"Enable", {"--enable-route-table", "-4", "eth0", "192.0.2.10,192.0.2.11"}, "", "", "", 0, Policy(kEnable4)},
        Case{"EnableFailsEchoesFamilyAsTyped",
             {"--enable-route-table", "-4x", "eth0", "192.0.2.10"},
             R"({"results": {"PolicyRoute.EnableTable": [-1]}})",
             "",
             "Failed to enable route table for eth0 in IPV-4x\n",
             255,
             Policy(R"({"op":"PolicyRoute.EnableTable","args":[0,"eth0","192.0.2.10"],"result":-1})"
                    "\n" +
                    Logged("Failed to enable route table for [eth0] in IPV-4x"))},
        Refused("EnableNeedsSource", {"--enable-route-table", "-4", "eth0"}, "argc too small: 4\n"),
        Refused("EnableBadFamily", {"--enable-route-table", "v4", "eth0", "192.0.2.10"}, "arg1 error: need a type\n"),
        Case{"DisableIgnoresSource",
             {"--disable-route-table", "-6", "eth0", "192.0.2.10"},
             "",
             "",
             "",
             0,
             Policy(R"({"op":"PolicyRoute.DisableTable","args":[1,"eth0"],"result":0})")},
        Case{"DisableFails",
             {"--disable-route-table", "-6", "eth0"},
             R"({"results": {"PolicyRoute.DisableTable": [-1]}})",
             "",
             "Failed to disable route table for eth0 in IPV-6\n",
             255,
             Policy(R"({"op":"PolicyRoute.DisableTable","args":[1,"eth0"],"result":-1})"
                    "\n" +
                    Logged("Failed to disable route table for [eth0] in IPV-6"))},
        Refused("DisableNeedsInterface", {"--disable-route-table", "-6"}, "argc too small: 3\n"),
        Refused("DisableEmptyFamily", {"--disable-route-table", "", "eth0"}, "arg1 error: need a type\n"),
        Case{"Refresh",
             {"--refresh-route-table", "-4", "eth0", "192.0.2.10,192.0.2.11"},
             "",
             "",
             "",
             0,
             Policy(std::string(kDisable4) + "\n" + kEnable4)},
        Case{"RefreshNeverEnablesAfterFailedDisable",
             {"--refresh-route-table", "-4", "eth0", "192.0.2.10,192.0.2.11"},
             R"({"results": {"PolicyRoute.DisableTable": [-1]}})",
             "",
             "Failed to disable route table for eth0 in IPV-4\n",
             255,
             Policy(R"({"op":"PolicyRoute.DisableTable","args":[0,"eth0"],"result":-1})"
                    "\n" +
                    Logged("Failed to disable route table for [eth0] in IPV-4"))},
        Case{"RefreshLeavesTableDisabledWhenEnableFails",
             {"--refresh-route-table", "-4", "eth0", "192.0.2.10,192.0.2.11"},
             R"({"results": {"PolicyRoute.EnableTable": [-1]}})",
             "",
             "Failed to enable route table for eth0 in IPV-4\n",
             255,
             Policy(std::string(kDisable4) + "\n" +
                    R"({"op":"PolicyRoute.EnableTable","args":[0,"eth0","192.0.2.10,192.0.2.11"],"result":-1})"
                    "\n" +
                    Logged("Failed to enable route table for [eth0] in IPV-4"))},
        Refused("RefreshNeedsSource", {"--refresh-route-table", "-4", "eth0"}, "argc too small: 4\n")),
    blackbox::CaseName());

}  // namespace

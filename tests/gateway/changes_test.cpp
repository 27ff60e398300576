#include "blackbox/harness.h"

namespace {

using blackbox::Case;

// The action succeeds, silently, having sent exactly `request` through `op`.
Case Sent(const char* name, std::vector<std::string> args, const char* op, const std::string& request) {
    return Case{name,
                args,
                "",
                "",
                "",
                0,
                std::string(R"({"op":"NetClient.)") + op + R"(","args":[)" + request + R"(],"result":0})",
                blackbox::Journal::Contains};
}

// The action is refused before anything is sent.
Case Refused(const char* name, std::vector<std::string> args, const char* complaint) {
    return Case{name, args, "", "", complaint, 255, R"({"op":"NetClient.NetClient"}
        {"op":"NetClient.~NetClient"})"};
}

const char* const kAdd = R"("type":"GTYPE_V6","priority":"1","ifname":"eth1","gateway":"2001:db8::1","dns":"2001:db8::53")";

const char* const kNeverReady = R"({"results": {"NetClient.IsServerReady": [false, false, false, false, false, false]}})";

class GatewayChanges : public ::testing::TestWithParam<Case> {};

TEST_P(GatewayChanges, Row) { blackbox::Check(GetParam()); }

INSTANTIATE_TEST_SUITE_P(
    Rows, GatewayChanges,
    ::testing::Values(
        Sent("AddWithClass", {"--add-gateway-info", "-6", "1", "eth1", "2001:db8::1", "2001:db8::53", "lan"}, "AddGatewayData",
             std::string("{") + kAdd + R"(,"class":"lan"})"),
        Sent("AddIgnoresMore", {"--add-gateway-info", "-6", "1", "eth1", "2001:db8::1", "2001:db8::53", "", "x"},
             "AddGatewayData", std::string("{") + kAdd + R"(,"class":""})"),
        Sent("RefreshAll", {"--refresh-gateway", "all"}, "RefreshGateway", R"({"type":"ALL"})"),
        Sent("RefreshAllByPrefix", {"--refresh-gateway", "allx"}, "RefreshGateway", R"({"type":"ALL"})"),
        Refused("RefreshUpperCase", {"--refresh-gateway", "ALL"}, "arg1 error: need a type\n"),
        Refused("RefreshAl", {"--refresh-gateway", "al"}, "arg1 error: need a type\n"),
        Sent("SlaveYesByPrefix", {"--set-slave-data", "-6", "eth1", "yesplease"}, "SetSlaveData",
             R"({"type":"GTYPE_V6","ifname":"eth1","slave":true})"),
        Sent("SlaveNoByPrefix", {"--set-slave-data", "-4", "eth1", "nope"}, "SetSlaveData",
             R"({"type":"GTYPE_V4","ifname":"eth1","slave":false})"),
        Refused("SlaveTrue", {"--set-slave-data", "-4", "eth1", "true"}, "arg1 error: please enter true or false\n"),
        Refused("SlaveFamilyFirst", {"--set-slave-data", "4", "eth1", "true"}, "arg1 error: need a type\n"),
        Case{"CopyFailureLoggedOnly",
             {"--copy-gateway-info", "-6x", "eth0", "eth1"},
             R"({"results": {"NetClient.CopyGatewayData": [-2]}})",
             "",
             "",
             255,
             R"({"op":"NetClient.NetClient"}
            {"op":"NetClient.CopyGatewayData","args":[{"type":"GTYPE_V6","interface_source":"eth0","interface_destination":"eth1","interface_source_delete":false}],"result":-2}
            {"op":"syslog","args":[3,"tarnnetdtool:N Failed to copy -6x gateway info from [eth0] to [eth1]"]}
            {"op":"NetClient.~NetClient"})"},
        Case{"ResetNeverWaits", {"--reset-ipv6-module", "-4", "eth0"}, kNeverReady, "", "", 0, R"({"op":"NetClient.NetClient"}
            {"op":"NetClient.ResetIPv6Module","args":["-4"],"result":0}
            {"op":"NetClient.~NetClient"})"},
        Case{"ResetRefused",
             {"--reset-ipv6-module", "eth0"},
             R"({"results": {"NetClient.ResetIPv6Module": [-1]}})",
             "",
             "Failed to ResetIPv6Module\n",
             255,
             R"({"op":"NetClient.ResetIPv6Module","args":["eth0"],"result":-1})",
             blackbox::Journal::Contains},
        Refused("ResetTooFew", {"--reset-ipv6-module"}, "argc too small: 2\n")),
    blackbox::CaseName());

}  // namespace

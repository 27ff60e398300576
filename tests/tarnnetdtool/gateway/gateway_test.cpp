#include "blackbox/harness.h"

namespace {

using blackbox::Case;
using blackbox::Journal;

// The daemon never reports ready: the waiting actions ask six times, a second apart, then go on.
const char* const kNeverReady = R"({"results": {"NetClient.IsServerReady": [false, false, false, false, false, false]}})";
const std::string kWaited = [] {
    std::string asks;
    for (int ask = 1; ask <= 6; ++ask)
        asks += std::string(R"({"op":"NetClient.IsServerReady","result":false})") +
                (ask < 6 ? "\n{\"op\":\"sleep\",\"args\":[1]}\n" : "\n");
    return asks;
}();

std::string Sent(const std::string& op, const std::string& request, bool reply = false, int result = 0) {
    return R"({"op":"NetClient.)" + op + R"(","args":[)" + request + (reply ? ",null" : "") +
           "],\"result\":" + std::to_string(result) + "}";
}
std::string Refusing(const std::string& op) { return R"({"results": {"NetClient.)" + op + R"(": [-1]}})"; }
std::string Gateways(const std::string& list) { return R"({"gateways": {"GTYPE_V4": )" + list + "}}"; }
std::string Record(const std::string& record) { return R"({"gateway_data": {"GTYPE_V4": {"eth0": )" + record + "}}}"; }

const std::vector<std::string> kList4 = {"--get-gateway-list-data", "-4"};
const std::vector<std::string> kByClass = {"--get-interface-by-class", "-4", "wan"};
const std::vector<std::string> kRecord = {"--get-gateway-data-by-interface", "-4", "eth0"};
const std::vector<std::string> kAdd = {"--add-gateway-info", "-6abc", "1", "eth1", "2001:db8::1", "2001:db8::53", "lan"};
const std::vector<std::string> kDel = {"--del-gateway-info", "-6abc", "eth0"};
const std::vector<std::string> kCopy = {"--copy-gateway-info", "-6x", "eth0", "eth1"};
const std::vector<std::string> kSlave = {"--set-slave-data", "-6", "eth1", "yesplease"};
const char* const kEmptyRecord = "class=\ndns=\ngateway=\npriority=\n";
const char* const kNoType = "arg1 error: need a type\n";
const std::string kList =
    Gateways(R"([{"ifname": "eth0", "priority": 10, "class": "wan", "vlan": 7}, {"ifname": "lbr0", "class": "lan"},
    {"ifname": "eth2", "class": "wan2"}, {"ifname": "eth1", "class": "wan"}])");
const char* const kStyled =
    "[\n\t{\n\t\t\"class\" : \"wan\",\n\t\t\"ifname\" : \"eth0\",\n\t\t\"priority\" : 10,\n\t\t\"vlan\" : 7\n\t},\n"
    "\t{\n\t\t\"class\" : \"lan\",\n\t\t\"ifname\" : \"lbr0\"\n\t},\n\t{\n\t\t\"class\" : \"wan2\",\n\t\t\"ifname\" : \"eth2\"\n\t},\n"
    "\t{\n\t\t\"class\" : \"wan\",\n\t\t\"ifname\" : \"eth1\"\n\t}\n]\n\n";
const std::string kAddRequest =
    R"({"type":"GTYPE_V6","priority":"1","ifname":"eth1","gateway":"2001:db8::1","dns":"2001:db8::53","class":"lan"})";
const std::string kCopyRequest =
    R"({"type":"GTYPE_V6","interface_source":"eth0","interface_destination":"eth1","interface_source_delete":false})";

// Per action: the readiness wait (or none) with the family read by its first two characters, the
// argument count checked before the family, and the complaint when the daemon refuses.
// clang-format off
BLACKBOX_SUITE(Gateway);
INSTANTIATE_TEST_SUITE_P(Actions, Gateway, ::testing::Values(
    Case{"ListWaits", {"--get-gateway-list-data", "-6abc"}, kNeverReady, "[]\n\n", "", 0, kWaited + Sent("GetGatewayListData", R"({"type":"GTYPE_V6"})", true)},
    Case{"ListTooFew", {"--get-gateway-list-data"}, "", "", "argc too small: 2\n", 255, ""},
    Case{"ListRefused", kList4, Refusing("GetGatewayListData"), "", "Failed to GetGatewayListData\n", 255, Sent("GetGatewayListData", R"({"type":"GTYPE_V4"})", true, -1), Journal::Contains},
    Case{"RecordWaits", {"--get-gateway-data-by-interface", "-6abc", "eth0"}, kNeverReady, kEmptyRecord, "", 0, kWaited + Sent("GetGatewayDataByInterface", R"({"type":"GTYPE_V6","ifname":"eth0"})", true)},
    Case{"RecordTooFew", {"--get-gateway-data-by-interface", "x"}, "", "", "argc too small: 3\n", 255, ""},
    Case{"RecordRefused", kRecord, Refusing("GetGatewayDataByInterface"), "", "Failed to GetGatewayDataByInterface\n", 255, "", Journal::Ignore},
    Case{"ByClassWaits", {"--get-interface-by-class", "-6abc", "wan"}, kNeverReady, "\n", "", 0, kWaited + Sent("GetGatewayListData", R"({"type":"GTYPE_V6"})", true)},
    Case{"ByClassTooFew", {"--get-interface-by-class", "x"}, "", "", "argc too small: 3\n", 255, ""},
    Case{"ByClassRefused", kByClass, Refusing("GetGatewayListData"), "", "Failed to GetGatewayListData\n", 255, "", Journal::Ignore},
    Case{"AddWaits", kAdd, kNeverReady, "", "", 0, kWaited + Sent("AddGatewayData", kAddRequest)},
    Case{"AddTooFew", {"--add-gateway-info", "x", "1", "eth1", "2001:db8::1"}, "", "", "argc too small: 6\n", 255, ""},
    Case{"AddRefused", kAdd, Refusing("AddGatewayData"), "", "Failed to AddGatewayData\n", 255, "", Journal::Ignore},
    Case{"DelWaits", kDel, kNeverReady, "", "", 0, kWaited + Sent("DelGatewayData", R"({"type":"GTYPE_V6","ifname":"eth0"})")},
    Case{"DelTooFew", {"--del-gateway-info", "x"}, "", "", "argc too small: 3\n", 255, ""},
    Case{"DelRefused", kDel, Refusing("DelGatewayData"), "", "Failed to DelGatewayData\n", 255, "", Journal::Ignore},
    Case{"RefreshWaits", {"--refresh-gateway", "-6abc"}, kNeverReady, "", "", 0, kWaited + Sent("RefreshGateway", R"({"type":"GTYPE_V6"})")},
    Case{"RefreshTooFew", {"--refresh-gateway"}, "", "", "argc too small: 2\n", 255, ""},
    Case{"RefreshRefused", {"--refresh-gateway", "-4"}, Refusing("RefreshGateway"), "", "Failed to RefreshGateway\n", 255, "", Journal::Ignore},
    Case{"CopyTooFew", {"--copy-gateway-info", "x", "eth0"}, "", "", "argc too small: 4\n", 255, ""},
    Case{"CopyRefusedLoggedOnly", kCopy, Refusing("CopyGatewayData"), "", "", 255, Sent("CopyGatewayData", kCopyRequest, false, -1) + R"(
        {"op":"syslog","args":[3,"tarnnetdtool:N Failed to copy -6x gateway info from [eth0] to [eth1]"]})"},
    Case{"SlaveNeverWaits", kSlave, kNeverReady, "", "", 0, Sent("SetSlaveData", R"({"type":"GTYPE_V6","ifname":"eth1","slave":true})")},
    Case{"SlaveTooFew", {"--set-slave-data", "x", "eth1"}, "", "", "argc too small: 4\n", 255, ""},
    Case{"SlaveRefused", kSlave, Refusing("SetSlaveData"), "", "Failed to SetSlaveData\n", 255, "", Journal::Ignore},
    Case{"ResetNeverWaits", {"--reset-ipv6-module", "eth0"}, kNeverReady, "", "", 0, R"({"op":"NetClient.ResetIPv6Module","args":["eth0"],"result":0})"},
    Case{"ResetTooFew", {"--reset-ipv6-module"}, "", "", "argc too small: 2\n", 255, ""},
    Case{"ResetRefused", {"--reset-ipv6-module", "eth0"}, Refusing("ResetIPv6Module"), "", "Failed to ResetIPv6Module\n", 255, R"({"op":"NetClient.ResetIPv6Module","args":["eth0"],"result":-1})"},
    Case{"ReadyAtThirdAsk", {"--del-gateway-info", "-4x", "eth0"}, R"({"results": {"NetClient.IsServerReady": [false, false, true]}})", "", "", 0, R"({"op":"NetClient.IsServerReady","result":false}
        {"op":"sleep","args":[1]}
        {"op":"NetClient.IsServerReady","result":false}
        {"op":"sleep","args":[1]}
        {"op":"NetClient.IsServerReady","result":true})" "\n" + Sent("DelGatewayData", R"({"type":"GTYPE_V4","ifname":"eth0"})")},
    Case{"FamilyFour", {"--del-gateway-info", "4", "eth0"}, "", "", kNoType, 255, ""},
    Case{"FamilyMinusFive", {"--get-gateway-list-data", "-5"}, "", "", kNoType, 255, ""},
    Case{"FamilyEmpty", {"--set-slave-data", "", "eth1", "yes"}, "", "", kNoType, 255, ""}),
    blackbox::CaseName());

INSTANTIATE_TEST_SUITE_P(Rows, Gateway, ::testing::Values(
    Case{"ListStyled", kList4, kList, kStyled, "", 0, "", Journal::Ignore},
    Case{"ListNull", kList4, Gateways("null"), "[]\n\n", "", 0, "", Journal::Ignore},
    Case{"ClassOne", {"--get-interface-by-class", "-4", "lan"}, kList, "lbr0\n", "", 0, "", Journal::Ignore},
    Case{"RecordNull", kRecord, Record("null"), kEmptyRecord, "", 0, "", Journal::Ignore},
    Case{"ListObject", kList4, Gateways(R"({"ifname": "eth0"})"), "", "Failed to GetGatewayListData\n", 255, "", Journal::Ignore},
    Case{"ClassEntryNotObject", kByClass, Gateways(R"([{"ifname": "eth0"}, "eth1"])"), "", "Failed to GetGatewayListData\n", 255, "", Journal::Ignore},
    Case{"ClassIfnameArray", kByClass, Gateways(R"([{"ifname": ["eth0"], "class": "wan"}])"), "", "Failed to GetGatewayListData\n", 255, "", Journal::Ignore},
    Case{"RecordArray", kRecord, Record(R"([{"class": "wan"}])"), "", "Failed to GetGatewayDataByInterface\n", 255, "", Journal::Ignore},
    Case{"RecordDnsArray", kRecord, Record(R"({"dns": []})"), "", "Failed to GetGatewayDataByInterface\n", 255, "", Journal::Ignore},
    Case{"RefreshAllByPrefix", {"--refresh-gateway", "allx"}, "", "", "", 0, Sent("RefreshGateway", R"({"type":"ALL"})"), Journal::Contains},
    Case{"RefreshAl", {"--refresh-gateway", "al"}, "", "", kNoType, 255, ""},
    Case{"SlaveNoByPrefix", {"--set-slave-data", "-4", "eth1", "nope"}, "", "", "", 0, Sent("SetSlaveData", R"({"type":"GTYPE_V4","ifname":"eth1","slave":false})")},
    Case{"SlaveTrue", {"--set-slave-data", "-4", "eth1", "true"}, "", "", "arg1 error: please enter true or false\n", 255, ""},
    Case{"Duid", {"--gen-DUID", "-6"}, "", "00:03:00:01:02:00:00:00:00:01\n", "", 0, R"({"op":"GenDUID","result":"00:03:00:01:02:00:00:00:00:01"})"},
    Case{"DuidFailsWithoutLineEnd", {"--gen-DUID"}, R"({"duid": ""})", "", "Failed to generate DUID", 255, R"({"op":"GenDUID","result":""})"}),
    blackbox::CaseName());
// clang-format on

}  // namespace

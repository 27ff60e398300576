#include "blackbox/harness.h"

#include <sstream>

namespace {

using blackbox::Case;

// A gateway action with a family: its arguments after the family, whether it waits for the
// daemon, the request's members besides "type", and its complaint when the daemon refuses.
struct Typed {
    const char* name;
    const char* action;
    const char* rest;
    bool waits;
    const char* op;
    const char* request;
    bool reply;  // the call has a response argument
    const char* out;
    const char* complaint;
};

const Typed kTyped[] = {
    {"List", "--get-gateway-list-data", "", true, "GetGatewayListData", "", true, "[]\n\n", "Failed to GetGatewayListData\n"},
    {"Record", "--get-gateway-data-by-interface", "eth0", true, "GetGatewayDataByInterface", R"("ifname":"eth0",)", true,
     "class=\ndns=\ngateway=\npriority=\n", "Failed to GetGatewayDataByInterface\n"},
    {"ByClass", "--get-interface-by-class", "wan", true, "GetGatewayListData", "", true, "\n", "Failed to GetGatewayListData\n"},
    {"Add", "--add-gateway-info", "10 eth0 192.0.2.1 192.0.2.53", true, "AddGatewayData",
     R"("priority":"10","ifname":"eth0","gateway":"192.0.2.1","dns":"192.0.2.53",)", false, "", "Failed to AddGatewayData\n"},
    {"Del", "--del-gateway-info", "eth0", true, "DelGatewayData", R"("ifname":"eth0",)", false, "", "Failed to DelGatewayData\n"},
    {"Refresh", "--refresh-gateway", "", true, "RefreshGateway", "", false, "", "Failed to RefreshGateway\n"},
    {"Copy", "--copy-gateway-info", "eth0 eth1", false, "CopyGatewayData",
     R"("interface_source":"eth0","interface_destination":"eth1","interface_source_delete":false,)", false, "", ""},
    {"Slave", "--set-slave-data", "eth0 yes", false, "SetSlaveData", R"("ifname":"eth0","slave":true,)", false, "",
     "Failed to SetSlaveData\n"},
};

std::vector<std::string> Args(const Typed& t, const std::string& family) {
    std::vector<std::string> args{t.action, family};
    std::istringstream rest(t.rest);
    for (std::string word; rest >> word;) args.push_back(word);
    return args;
}

// The daemon reports ready at ask `readyAt` (0: never); only waiting actions ask, six times at most.
Case Wait(const Typed& t, const std::string& family, const char* type, int readyAt) {
    std::string results, journal;
    for (int ask = 1; ask <= (readyAt == 0 ? 6 : readyAt); ++ask) {
        bool ready = ask == readyAt;
        results += std::string(ask > 1 ? "," : "") + (ready ? "true" : "false");
        if (!t.waits) continue;
        journal += std::string(R"({"op":"NetClient.IsServerReady","result":)") + (ready ? "true}\n" : "false}\n");
        if (!ready && ask < 6) journal += "{\"op\":\"sleep\",\"args\":[1]}\n";
    }
    journal += std::string(R"({"op":"NetClient.)") + t.op + R"(","args":[{)" + t.request + R"("type":")" + type + "\"}" +
               (t.reply ? ",null" : "") + "],\"result\":0}";
    return Case{std::string(t.name) + "_ReadyAt" + std::to_string(readyAt), Args(t, family),
                R"({"results": {"NetClient.IsServerReady": [)" + results + "]}}", t.out, "", 0, journal};
}

// The argument count is checked before the family; the family is "-4" or "-6" by its first two characters.
std::vector<Case> Rules() {
    std::vector<Case> rows;
    for (const Typed& t : kTyped) {
        rows.push_back(Wait(t, "-4x", "GTYPE_V4", 3));
        rows.push_back(Wait(t, "-6abc", "GTYPE_V6", 0));
        std::vector<std::string> tooFew = Args(t, "x");
        tooFew.pop_back();
        rows.push_back(Case{std::string(t.name) + "_CountFirst", tooFew, "", "",
                            "argc too small: " + std::to_string(tooFew.size() + 1) + "\n", 255, ""});
        for (const auto& [label, family] : {std::pair{"Four", "4"}, {"MinusFive", "-5"}, {"Empty", ""}})
            rows.push_back(Case{std::string(t.name) + "_Family" + label, Args(t, family), "", "",
                                "arg1 error: need a type\n", 255, ""});
        rows.push_back(Case{std::string(t.name) + "_Refused", Args(t, "-4"),
                            std::string(R"({"results": {"NetClient.)") + t.op + R"(": [-1]}})", "", t.complaint, 255,
                            std::string(R"({"op":"NetClient.)") + t.op + R"(","result":-1})", blackbox::Journal::Contains});
    }
    return rows;
}

BLACKBOX_SUITE(GatewayRows);
INSTANTIATE_TEST_SUITE_P(Rules, GatewayRows, ::testing::ValuesIn(Rules()), blackbox::CaseName());

std::string Gateways(const std::string& list) { return R"({"gateways": {"GTYPE_V4": )" + list + "}}"; }
std::string Record(const std::string& record) { return R"({"gateway_data": {"GTYPE_V4": {"eth0": )" + record + "}}}"; }

const std::string kList = Gateways(R"([{"ifname": "eth0", "priority": 10, "class": "wan", "vlan": 7},
    {"ifname": "lbr0", "class": "lan"}, {"ifname": "eth2", "class": "wan2"}, {"ifname": "eth1", "class": "wan"}])");
const char* const kStyled = "[\n\t{\n\t\t\"class\" : \"wan\",\n\t\t\"ifname\" : \"eth0\",\n\t\t\"priority\" : 10,\n\t\t\"vlan\" : 7\n\t},\n"
                            "\t{\n\t\t\"class\" : \"lan\",\n\t\t\"ifname\" : \"lbr0\"\n\t},\n"
                            "\t{\n\t\t\"class\" : \"wan2\",\n\t\t\"ifname\" : \"eth2\"\n\t},\n"
                            "\t{\n\t\t\"class\" : \"wan\",\n\t\t\"ifname\" : \"eth1\"\n\t}\n]\n\n";
const std::vector<std::string> kByClass = {"--get-interface-by-class", "-4", "wan"};
const std::vector<std::string> kList4 = {"--get-gateway-list-data", "-4"};
const std::vector<std::string> kRecord = {"--get-gateway-data-by-interface", "-4", "eth0"};
const std::vector<std::string> kAdd = {"--add-gateway-info", "-6", "1", "eth1", "2001:db8::1", "2001:db8::53", "lan"};

// A success whose journal the rule rows pin down.
Case Prints(const char* name, std::vector<std::string> args, const std::string& scenario, const char* out) {
    return Case{name, args, scenario, out, "", 0, "", blackbox::Journal::Ignore};
}

// A reply of the wrong shape fails the action as if the call had.
Case Malformed(const char* name, std::vector<std::string> args, const std::string& scenario, const char* complaint) {
    return Case{name, args, scenario, "", complaint, 255, "", blackbox::Journal::Ignore};
}

// The action succeeds, silently, having sent `request` through `op`.
Case Sent(const char* name, std::vector<std::string> args, const char* op, const std::string& request) {
    return Case{name, args, "", "", "", 0, std::string(R"({"op":"NetClient.)") + op + R"(","args":[)" + request + "]}",
                blackbox::Journal::Contains};
}

const char* const kFailedList = "Failed to GetGatewayListData\n";
const char* const kFailedRecord = "Failed to GetGatewayDataByInterface\n";

INSTANTIATE_TEST_SUITE_P(
    Rows, GatewayRows,
    ::testing::Values(
        Prints("ListStyled", kList4, kList, kStyled), Prints("ListNull", kList4, Gateways("null"), "[]\n\n"),
        Prints("ClassWholeInListOrder", kByClass, kList, "eth0,eth1\n"),
        Prints("ClassOne", {"--get-interface-by-class", "-4", "lan"}, kList, "lbr0\n"),
        Prints("RecordNumberAsText", kRecord, Record(R"({"class": "wan", "dns": "192.0.2.53", "priority": 10})"),
               "class=wan\ndns=192.0.2.53\ngateway=\npriority=10\n"),
        Prints("RecordNull", kRecord, Record("null"), "class=\ndns=\ngateway=\npriority=\n"),
        Malformed("ListObject", kList4, Gateways(R"({"ifname": "eth0"})"), kFailedList),
        Malformed("ClassEntryNotObject", kByClass, Gateways(R"([{"ifname": "eth0"}, "eth1"])"), kFailedList),
        Malformed("ClassIfnameArray", kByClass, Gateways(R"([{"ifname": ["eth0"], "class": "wan"}])"), kFailedList),
        Malformed("RecordArray", kRecord, Record(R"([{"class": "wan"}])"), kFailedRecord),
        Malformed("RecordDnsArray", kRecord, Record(R"({"dns": []})"), kFailedRecord),
        Case{"Ready", {"--is-server-ready"}, "", "1\n", "", 0, R"({"op":"NetClient.IsServerReady","result":true})"},
        Case{"NotReadyAskedOnce", {"--is-server-ready", "-4"}, R"({"results": {"NetClient.IsServerReady": [false]}})", "0\n", "",
             0, R"({"op":"NetClient.IsServerReady","result":false})"},
        Sent("AddWithClass", kAdd, "AddGatewayData",
             R"({"type":"GTYPE_V6","priority":"1","ifname":"eth1","gateway":"2001:db8::1","dns":"2001:db8::53","class":"lan"})"),
        Sent("RefreshAllByPrefix", {"--refresh-gateway", "allx"}, "RefreshGateway", R"({"type":"ALL"})"),
        Case{"RefreshAl", {"--refresh-gateway", "al"}, "", "", "arg1 error: need a type\n", 255, ""},
        Sent("SlaveYesByPrefix", {"--set-slave-data", "-6", "eth1", "yesplease"}, "SetSlaveData",
             R"({"type":"GTYPE_V6","ifname":"eth1","slave":true})"),
        Sent("SlaveNoByPrefix", {"--set-slave-data", "-4", "eth1", "nope"}, "SetSlaveData",
             R"({"type":"GTYPE_V4","ifname":"eth1","slave":false})"),
        Case{"SlaveTrue", {"--set-slave-data", "-4", "eth1", "true"}, "", "", "arg1 error: please enter true or false\n", 255, ""},
        Case{"CopyFailureLoggedOnly", {"--copy-gateway-info", "-6x", "eth0", "eth1"},
             R"({"results": {"NetClient.CopyGatewayData": [-2]}})", "", "", 255,
             R"({"op":"NetClient.CopyGatewayData","args":[{"type":"GTYPE_V6","interface_source":"eth0","interface_destination":"eth1","interface_source_delete":false}],"result":-2}
                {"op":"syslog","args":[3,"tarnnetdtool:N Failed to copy -6x gateway info from [eth0] to [eth1]"]})"},
        Case{"ResetNeverWaits", {"--reset-ipv6-module", "eth0"}, R"({"results": {"NetClient.IsServerReady": [false]}})", "", "", 0,
             R"({"op":"NetClient.ResetIPv6Module","args":["eth0"],"result":0})"},
        Case{"ResetRefused", {"--reset-ipv6-module", "eth0"}, R"({"results": {"NetClient.ResetIPv6Module": [-1]}})", "",
             "Failed to ResetIPv6Module\n", 255, R"({"op":"NetClient.ResetIPv6Module","args":["eth0"],"result":-1})"},
        Case{"ResetTooFew", {"--reset-ipv6-module"}, "", "", "argc too small: 2\n", 255, ""},
        Case{"Duid", {"--gen-DUID", "-6"}, "", "00:03:00:01:02:00:00:00:00:01\n", "", 0,
             R"({"op":"GenDUID","result":"00:03:00:01:02:00:00:00:00:01"})"},
        Case{"DuidFailsWithoutLineEnd", {"--gen-DUID"}, R"({"duid": ""})", "", "Failed to generate DUID", 255,
             R"({"op":"GenDUID","result":""})"}),
    blackbox::CaseName());

}  // namespace

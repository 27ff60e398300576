// The rules every gateway action with an address family follows: argument count before family,
// the family by its first two characters, the readiness wait of exactly six of them, and the
// complaint when the daemon refuses.
#include "blackbox/harness.h"

#include <sstream>

namespace {

using blackbox::Case;

struct Typed {
    const char* name;
    const char* action;
    const char* rest;  // arguments after the family, separated by blanks
    bool waits;
    const char* op;
    const char* request;  // the request's members besides "type"
    const char* then;     // the call's other arguments and result, and what follows it
    const char* out;      // with the scenario's defaults
    const char* complaint;
};

const Typed kTyped[] = {
    {"ListData", "--get-gateway-list-data", "", true, "NetClient.GetGatewayListData", "", ",null],\"result\":0}", "[]\n\n",
     "Failed to GetGatewayListData\n"},
    {"DataByInterface", "--get-gateway-data-by-interface", "eth0", true, "NetClient.GetGatewayDataByInterface",
     R"("ifname":"eth0",)", ",null],\"result\":0}", "class=\ndns=\ngateway=\npriority=\n",
     "Failed to GetGatewayDataByInterface\n"},
    {"InterfaceByClass", "--get-interface-by-class", "wan", true, "NetClient.GetGatewayListData", "",
     ",null],\"result\":0}\n{\"op\":\"FilterList\",\"args\":[\"wan\",null],\"result\":0}", "\n",
     "Failed to GetGatewayListData\n"},
    {"Add", "--add-gateway-info", "10 eth0 192.0.2.1 192.0.2.53", true, "NetClient.AddGatewayData",
     R"("priority":"10","ifname":"eth0","gateway":"192.0.2.1","dns":"192.0.2.53",)", "],\"result\":0}", "",
     "Failed to AddGatewayData\n"},
    {"Del", "--del-gateway-info", "eth0", true, "NetClient.DelGatewayData", R"("ifname":"eth0",)", "],\"result\":0}", "",
     "Failed to DelGatewayData\n"},
    {"Refresh", "--refresh-gateway", "", true, "NetClient.RefreshGateway", "", "],\"result\":0}", "",
     "Failed to RefreshGateway\n"},
    {"Copy", "--copy-gateway-info", "eth0 eth1", false, "NetClient.CopyGatewayData",
     R"("interface_source":"eth0","interface_destination":"eth1","interface_source_delete":false,)", "],\"result\":0}", "", ""},
    {"Slave", "--set-slave-data", "eth0 yes", false, "NetClient.SetSlaveData", R"("ifname":"eth0","slave":true,)",
     "],\"result\":0}", "", "Failed to SetSlaveData\n"},
};

const char* const kOpen = "{\"op\":\"NetClient.NetClient\"}\n";
const char* const kClose = "\n{\"op\":\"NetClient.~NetClient\"}";
const char* const kReady = "{\"op\":\"NetClient.IsServerReady\",\"result\":true}\n";
const char* const kNotReady = "{\"op\":\"NetClient.IsServerReady\",\"result\":false}\n";
const char* const kSleep = "{\"op\":\"sleep\",\"args\":[1]}\n";

std::vector<std::string> Args(const Typed& t, const std::string& family) {
    std::vector<std::string> args{t.action, family};
    std::istringstream rest(t.rest);
    for (std::string word; rest >> word;) args.push_back(word);
    return args;
}

// A daemon that reports ready at ask `readyAt`; 0 for never. Only waiting actions ask.
Case Wait(const Typed& t, const char* label, const std::string& family, const char* type, int readyAt) {
    std::string results, journal = kOpen;
    int asks = readyAt == 0 ? 6 : readyAt;
    for (int ask = 1; ask <= asks; ++ask) {
        bool ready = ask == readyAt;
        results += std::string(ask > 1 ? "," : "") + (ready ? "true" : "false");
        if (t.waits) journal += ready ? kReady : std::string(kNotReady) + (ask < 6 ? kSleep : "");
    }
    std::string scenario = R"({"results": {"NetClient.IsServerReady": [)" + results + "]}}";
    return Case{std::string(t.name) + "_" + label,
                Args(t, family),
                scenario,
                t.out,
                "",
                0,
                journal + "{\"op\":\"" + t.op + "\",\"args\":[{" + t.request + "\"type\":\"" + type + "\"}" + t.then + kClose};
}

std::vector<Case> Rows() {
    std::vector<Case> rows;
    const std::pair<const char*, const char*> kBadFamilies[] = {
        {"Four", "4"}, {"V4", "v4"}, {"MinusFive", "-5"}, {"Minus", "-"}, {"Empty", ""}};
    for (const Typed& t : kTyped) {
        rows.push_back(Wait(t, "ReadyAtOnce", "-4x", "GTYPE_V4", 1));
        rows.push_back(Wait(t, "ReadyAtThirdAsk", "-46", "GTYPE_V4", 3));
        rows.push_back(Wait(t, "NeverReady", "-6abc", "GTYPE_V6", 0));
        std::vector<std::string> tooFew = Args(t, "x");
        tooFew.pop_back();
        rows.push_back(Case{std::string(t.name) + "_CountBeforeFamily", tooFew, "", "",
                            "argc too small: " + std::to_string(tooFew.size() + 1) + "\n", 255, std::string(kOpen) + kClose});
        for (const auto& [label, family] : kBadFamilies)
            rows.push_back(Case{std::string(t.name) + "_Family" + label, Args(t, family), "", "", "arg1 error: need a type\n",
                                255, std::string(kOpen) + kClose});
        rows.push_back(Case{std::string(t.name) + "_DaemonRefuses", Args(t, "-4"),
                            std::string(R"({"results": {")") + t.op + R"(": [-1]}})", "", t.complaint, 255,
                            std::string(R"({"op":")") + t.op + R"(","result":-1})" + kClose, blackbox::Journal::Contains});
    }
    return rows;
}

class GatewayRules : public ::testing::TestWithParam<Case> {};

TEST_P(GatewayRules, Row) { blackbox::Check(GetParam()); }

INSTANTIATE_TEST_SUITE_P(Rows, GatewayRules, ::testing::ValuesIn(Rows()), blackbox::CaseName());

}  // namespace

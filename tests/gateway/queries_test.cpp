#include "blackbox/harness.h"

namespace {

using blackbox::Case;
using blackbox::Journal;

std::string Gateways(const std::string& list) { return R"({"gateways": {"GTYPE_V4": )" + list + "}}"; }
std::string Record(const std::string& record) { return R"({"gateway_data": {"GTYPE_V4": {"eth0": )" + record + "}}}"; }

const char* const kList = R"([{"ifname": "eth0", "priority": 10, "class": "wan", "vlan": 7},
    {"ifname": "lbr0", "class": "lan"}, {"ifname": "eth1", "class": "wan"}])";

const char* const kListStyled =
    "[\n\t{\n\t\t\"class\" : \"wan\",\n\t\t\"ifname\" : \"eth0\",\n\t\t\"priority\" : 10,\n\t\t\"vlan\" : 7\n\t},\n"
    "\t{\n\t\t\"class\" : \"lan\",\n\t\t\"ifname\" : \"lbr0\"\n\t},\n"
    "\t{\n\t\t\"class\" : \"wan\",\n\t\t\"ifname\" : \"eth1\"\n\t}\n]\n\n";

const char* const kListRequest = R"({"type":"GTYPE_V4"})";
const char* const kRecordRequest = R"({"ifname":"eth0","type":"GTYPE_V4"})";

// A success whose journal the rules rows already pin down.
Case Prints(const char* name, std::vector<std::string> args, const std::string& scenario, const char* out) {
    return Case{name, args, scenario, out, "", 0, "", Journal::Ignore};
}

// A reply of the wrong shape: the action fails as if the call had, prints nothing, goes no further.
Case Malformed(const std::string& name, std::vector<std::string> args, const std::string& scenario, const char* op,
               const char* request) {
    std::string journal = std::string(R"({"op":"NetClient.NetClient"}
        {"op":"NetClient.IsServerReady","result":true}
        {"op":"NetClient.)") +
                          op + R"(","args":[)" + request + R"(,null],"result":0}
        {"op":"NetClient.~NetClient"})";
    return Case{name, args, scenario, "", std::string("Failed to ") + op + "\n", 255, journal};
}

std::vector<Case> Rows() {
    const std::vector<std::string> kByClass = {"--get-interface-by-class", "-4", "wan"};
    const std::vector<std::string> kByInterface = {"--get-gateway-data-by-interface", "-4", "eth0"};
    std::vector<Case> rows = {
        Prints("ListWhole", {"--get-gateway-list-data", "-4"}, Gateways(kList), kListStyled),
        Prints("ListNull", {"--get-gateway-list-data", "-4"}, Gateways("null"), "[]\n\n"),
        Prints("ClassInListOrder", kByClass, Gateways(kList), "eth0,eth1\n"),
        Prints("ClassOneNoComma", {"--get-interface-by-class", "-4", "lan"}, Gateways(kList), "lbr0\n"),
        Prints("ClassNoneEmptyLine", {"--get-interface-by-class", "-4", "dmz"}, Gateways(kList), "\n"),
        Prints("RecordNumberAsText", kByInterface,
               Record(R"({"class": "wan", "dns": "192.0.2.53", "gateway": "192.0.2.1", "priority": 10})"),
               "class=wan\ndns=192.0.2.53\ngateway=192.0.2.1\npriority=10\n"),
        Prints("RecordWithoutClass", kByInterface, Record(R"({"dns": "", "priority": true})"),
               "class=\ndns=\ngateway=\npriority=true\n"),
        Prints("RecordNull", kByInterface, Record("null"), "class=\ndns=\ngateway=\npriority=\n"),
        {"Ready", {"--is-server-ready"}, "", "1\n", "", 0, R"({"op":"NetClient.NetClient"}
            {"op":"NetClient.IsServerReady","result":true}
            {"op":"NetClient.~NetClient"})"},
        {"NotReadyAskedOnce",
         {"--is-server-ready", "-4", "eth0"},
         R"({"results": {"NetClient.IsServerReady": [false]}})",
         "0\n",
         "",
         0,
         R"({"op":"NetClient.NetClient"}
            {"op":"NetClient.IsServerReady","result":false}
            {"op":"NetClient.~NetClient"})"},
    };
    const std::pair<const char*, const char*> kBadLists[] = {{"Object", R"({"ifname": "eth0"})"},
                                                             {"Text", R"("eth0")"},
                                                             {"Number", "7"},
                                                             {"EntryNotObject", R"([{"ifname": "eth0"}, "eth1"])"}};
    for (const auto& [name, list] : kBadLists) {
        rows.push_back(Malformed(std::string("List") + name, {"--get-gateway-list-data", "-4"}, Gateways(list),
                                 "GetGatewayListData", kListRequest));
        rows.push_back(Malformed(std::string("Class") + name, kByClass, Gateways(list), "GetGatewayListData", kListRequest));
    }
    const std::pair<const char*, const char*> kBadEntries[] = {{"IfnameArray", R"({"ifname": ["eth0"], "class": "wan"})"},
                                                               {"ClassObject", R"({"ifname": "eth0", "class": {"wan": 1}})"}};
    for (const auto& [name, entry] : kBadEntries)
        rows.push_back(Malformed(std::string("Class") + name, kByClass, Gateways(std::string("[") + entry + "]"),
                                 "GetGatewayListData", kListRequest));
    const std::pair<const char*, const char*> kBadRecords[] = {{"Array", R"([{"class": "wan"}])"},
                                                               {"Text", R"("wan")"},
                                                               {"ClassObject", R"({"class": {"wan": 1}})"},
                                                               {"DnsArray", R"({"dns": []})"}};
    for (const auto& [name, record] : kBadRecords)
        rows.push_back(
            Malformed(std::string("Record") + name, kByInterface, Record(record), "GetGatewayDataByInterface", kRecordRequest));
    return rows;
}

class GatewayQueries : public ::testing::TestWithParam<Case> {};

TEST_P(GatewayQueries, Row) { blackbox::Check(GetParam()); }

INSTANTIATE_TEST_SUITE_P(Rows, GatewayQueries, ::testing::ValuesIn(Rows()), blackbox::CaseName());

}  // namespace

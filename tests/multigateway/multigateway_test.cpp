#include "blackbox/harness.h"

namespace {

using blackbox::Case;
using blackbox::Journal;

const char* const kOn4 = "--enable-multi-gateway";
const char* const kOff4 = "--disable-multi-gateway";
const char* const kOn6 = "--enable-multi-gateway-v6";
const char* const kOff6 = "--disable-multi-gateway-v6";

// A black-box row, and a text that no event of its journal may contain ("" for none).
struct Row {
    Case row;
    std::string never;
};

void PrintTo(const Row& r, std::ostream* os) { *os << r.row.name; }

// These actions never write on standard output.
Row Expect(const std::string& name, const std::vector<std::string>& args, const std::string& scenario, const std::string& err,
           int status, const std::string& journal, Journal check = Journal::Contains, const std::string& never = "") {
    return Row{Case{name, args, scenario, "", err, status, journal, check}, never};
}

class MultiGateway : public ::testing::TestWithParam<Row> {};

TEST_P(MultiGateway, Row) {
    const Row& r = GetParam();
    blackbox::Check(r.row);
    if (r.never.empty()) return;
    for (const Json::Value& event : blackbox::RunSim(r.row.args, r.row.scenario).journal)
        EXPECT_EQ(blackbox::Compact(event).find(r.never), std::string::npos) << blackbox::Compact(event);
}

// How an IPv4 run with its alias list begins and ends.
const std::string kStart4 = R"(
    {"op":"NetClient.NetClient"}
    {"op":"PolicyRoute.PolicyRoute"}
    {"op":"NetClient.GetGatewayListData","args":[{"type":"GTYPE_V4"},null],"result":0}
    {"op":"TLIBCSzListAlloc","args":[1024],"result":"ptr"}
    {"op":"FilterList","args":["wan",null],"result":0})";
const std::string kEnd4 = R"(
    {"op":"TLIBCSzListFree","args":[null]}
    {"op":"PolicyRoute.~PolicyRoute"}
    {"op":"NetClient.~NetClient"})";

// WAN interface eth0 with the ifconfig output `eth0`, then, when `eth1`, eth1 with 198.51.100.10.
std::string Wans(const std::string& eth0, const std::string& more = "", bool eth1 = false) {
    std::string second = eth1 ? R"(, {"ifname": "eth1", "gateway": "198.51.100.1", "class": "wan"})" : "";
    return R"({"gateways": {"GTYPE_V4": [{"ifname": "eth0", "gateway": "192.0.2.1", "class": "wan"},
                                          {"ifname": "lbr0", "gateway": "192.0.2.1", "class": "lan"})" +
           second + R"(]}, "ifconfig": {"eth0": ")" + eth0 + R"(", "eth1": "inet addr:198.51.100.10\n"})" + more + "}";
}

const char* const kInetAddr = R"(eth0  Link encap:Ethernet\n  inet addr:192.0.2.10  Bcast:192.0.2.255  Mask:255.255.255.0\n)";
const char* const kTwoAliases = R"(, "aliases": {"eth0": ["192.0.2.11/24", "192.0.2.12/24"]})";

// The full IPv4 run over eth0 with two aliases; enabling and disabling differ in the rule step.
std::string Run4(const std::string& rule) {
    return kStart4 + R"(
    {"op":"TLIBCPopen","args":["/sbin/ifconfig","r","eth0"],"result":"ptr"}
    {"op":"TLIBCPclose","args":[null],"result":0}
    {"op":"TLIBCSzListAlloc","args":[512],"result":"ptr"}
    {"op":"TLIBCStrSep","args":["  inet addr:192.0.2.10  Bcast:192.0.2.255  Mask:255.255.255.0\n"," ",null],"result":4}
    {"op":"TLIBCStrReplace","args":["addr:192.0.2.10","addr:","",0,1024],"result":1}
    {"op":"TLIBCSzListFree","args":[null]}
    )" + rule +
           R"(
    {"op":"PolicyRoute.DisableTable","args":[0,"eth0"],"result":0}
    {"op":"TARNNetIpAliasList","args":["eth0",null],"result":0}
    {"op":"TARNNetSeperateSubnet","args":["192.0.2.11/24",null,20,null],"result":0}
    {"op":"TARNNetSeperateSubnet","args":["192.0.2.12/24",null,20,null],"result":0}
    {"op":"PolicyRoute.EnableTable","args":[0,"eth0","192.0.2.10,192.0.2.11,192.0.2.12"],"result":0}
    {"op":"TLIBCSzListRemoveAll","args":[null],"result":0})" +
           kEnd4;
}

// An entry without an interface name, eth0 with two IPv6 addresses, a LAN entry, eth1 without any.
const char* const kWans6 = R"({"gateways": {"GTYPE_V6": [{"ifname": 7, "gateway": "2001:db8::9", "class": "wan"},
    {"ifname": "eth0", "gateway": "2001:db8::1", "class": "wan"}, {"ifname": "lbr0", "gateway": "fd00::1", "class": "lan"},
    {"ifname": "eth1", "gateway": "2001:db8:1::1", "class": "wan"}]}, "ipv6_addresses": {"eth0": ["2001:db8::10", "2001:db8::11"]}})";

std::string Run6(const std::string& eth0Rule, const std::string& eth1Rule) {
    return R"(
    {"op":"NetClient.NetClient"}
    {"op":"PolicyRoute.PolicyRoute"}
    {"op":"NetClient.GetGatewayListData","args":[{"type":"GTYPE_V6"},null],"result":0}
    {"op":"FilterList","args":["wan",null],"result":0}
    {"op":"syslog","args":[4,"tarnnetdtool:N Skip WAN entry 0 without a usable ifname"]}
    )" + eth0Rule +
           R"(
    {"op":"PolicyRoute.DisableTable","args":[1,"eth0"],"result":0}
    {"op":"IPAddress.GetIPv6Address","args":["eth0"],"result":[["2001:db8::10",0],["2001:db8::11",0]]}
    {"op":"PolicyRoute.EnableTable","args":[1,"eth0","2001:db8::10,2001:db8::11"],"result":0}
    )" + eth1Rule +
           R"(
    {"op":"PolicyRoute.DisableTable","args":[1,"eth1"],"result":0}
    {"op":"IPAddress.GetIPv6Address","args":["eth1"],"result":[]}
    {"op":"PolicyRoute.~PolicyRoute"}
    {"op":"NetClient.~NetClient"})";
}

std::string Source(const std::string& source) {
    return R"({"op":"PolicyRoute.EnableTable","args":[0,"eth0",")" + source + R"("],"result":0})";
}

// Entry 0 lacks `member`; `never` shows in the journal only if it is not skipped.
Row Skip(const std::string& name, const char* action, const std::string& entry, const std::string& member,
         const std::string& never = "eth9") {
    std::string list = "[" + entry + R"(, {"ifname": "eth1", "gateway": "192.0.2.1", "class": "wan"}])";
    return Expect(name, {action},
                  R"({"gateways": {"GTYPE_V4": )" + list + R"(, "GTYPE_V6": )" + list +
                      R"(}, "ipv6_addresses": {"eth1": ["2001:db8::11"]}, "ifconfig": {"eth1": "inet addr:192.0.2.11\n"}})",
                  "", 0, R"({"op":"syslog","args":[4,"tarnnetdtool:N Skip WAN entry 0 without a usable )" + member + R"("]}
                            {"op":"PolicyRoute.EnableTable"})",
                  Journal::Contains, never);
}

INSTANTIATE_TEST_SUITE_P(
    Rows, MultiGateway,
    ::testing::Values(
        Expect(
            "EnableV4", {kOn4}, Wans(kInetAddr, kTwoAliases), "", 0,
            Run4(
                R"({"op":"PolicyRoute.AddRule","args":[{"type":0,"ip":"NULL","mask":"NULL","gateway":"192.0.2.1","prefix_length":"","interface":"eth0","service":"multi-gateway"}],"result":0})"),
            Journal::Exact),
        Expect("DisableV4", {kOff4}, Wans(kInetAddr, kTwoAliases), "", 0,
               Run4(R"({"op":"PolicyRoute.DeleteRule","args":[0,"multi-gateway","eth0"],"result":0})"), Journal::Exact),
        Expect(
            "EnableV6", {kOn6}, kWans6, "", 0,
            Run6(
                R"({"op":"PolicyRoute.AddRule","args":[{"type":1,"ip":"NULL","mask":null,"gateway":"2001:db8::1","prefix_length":"NULL","interface":"eth0","service":"multi-gateway"}],"result":0})",
                R"({"op":"PolicyRoute.AddRule","args":[{"type":1,"ip":"NULL","mask":null,"gateway":"2001:db8:1::1","prefix_length":"NULL","interface":"eth1","service":"multi-gateway"}],"result":0})"),
            Journal::Exact),
        Expect("DisableV6ExtraArguments", {kOff6, "-4", "eth0"}, kWans6, "", 0,
               Run6(R"({"op":"PolicyRoute.DeleteRule","args":[1,"multi-gateway","eth0"],"result":0})",
                    R"({"op":"PolicyRoute.DeleteRule","args":[1,"multi-gateway","eth1"],"result":0})"),
               Journal::Exact),
        Expect("NoWanEntryExtraArguments", {kOn4, "-6", "eth0"},
               R"({"gateways": {"GTYPE_V4": [{"ifname": "lbr0", "class": "lan"}]}})", "", 0, kStart4 + kEnd4, Journal::Exact),
        Expect("AliasListNotAllocatedEvenWithoutWan", {kOff4}, R"({"results": {"TLIBCSzListAlloc": [null]}})", "", 255, R"(
            {"op":"TLIBCSzListAlloc","args":[1024],"result":null}
            {"op":"syslog","args":[3,"tarnnetdtool:N Failed to allocate memory for multi-gateway of IP aliases."]})",
               Journal::Contains, "FilterList"),
        Expect("IfconfigCannotStart", {kOff4}, Wans(kInetAddr, R"(, "results": {"TLIBCPopen": [null]})"), "", 255, R"(
            {"op":"TLIBCPopen","args":["/sbin/ifconfig","r","eth0"],"result":null}
            {"op":"syslog","args":[3,"tarnnetdtool:N Failed to execute cmd [/sbin/ifconfig]"]}
            {"op":"TLIBCSzListFree"})",
               Journal::Contains, "PolicyRoute.DeleteRule"),
        Expect("WordListNotAllocated", {kOn4}, Wans(kInetAddr, R"(, "results": {"TLIBCSzListAlloc": ["ptr", null]})"), "", 255,
               R"(
            {"op":"TLIBCPclose"}
            {"op":"TLIBCSzListAlloc","args":[512],"result":null}
            {"op":"syslog","args":[3,"tarnnetdtool:N Failed to alloc memory."]}
            {"op":"TLIBCSzListFree"})",
               Journal::Contains, "PolicyRoute.AddRule"),
        Expect("NewerForm", {kOff4}, Wans(R"(eth0: flags=4163<UP>\n        inet 198.51.100.10  netmask 255.255.255.0\n)"), "", 0,
               R"(
            {"op":"TLIBCStrSep","args":["        inet 198.51.100.10  netmask 255.255.255.0\n"," ",null],"result":4}
            {"op":"TLIBCStrReplace","args":["198.51.100.10","addr:","",0,1024],"result":0}
            {"op":"PolicyRoute.EnableTable","args":[0,"eth0","198.51.100.10"],"result":0})"),
        Expect("FirstInetAddrLineCounts", {kOn4}, Wans(R"(inet addr:192.0.2.10  Mask:255.0.0.0\n  inet addr:192.0.2.20\n)"), "",
               0, Source("192.0.2.10")),
        Expect("NewerFormOnlyWithoutInetAddr", {kOn4}, Wans(R"(  inet 203.0.113.5  netmask 255.0.0.0\n  inet addr:192.0.2.10\n)"),
               "", 0, Source("192.0.2.10")),
        Expect("FirstDottedNewerForm", {kOff4}, Wans(R"(  inet fe80::1  x\n  inet 203.0.113.5 netmask\n  inet 203.0.113.6\n)"),
               "", 0, Source("203.0.113.5")),
        Expect("AliasQueryFails", {kOn4},
               Wans(kInetAddr, std::string(kTwoAliases) + R"(, "results": {"TARNNetIpAliasList": [1]})"), "", 0,
               Source("192.0.2.10")),
        Expect("AliasWithoutAddress", {kOff4},
               Wans(kInetAddr, std::string(kTwoAliases) + R"(, "results": {"TARNNetSeperateSubnet": [-1]})"), "", 0,
               Source("192.0.2.10,,192.0.2.12")),
        Expect("DisableTakesNoAliasesOfOtherInterfaces", {kOff4},
               Wans(kInetAddr, R"(, "aliases": {"eth0": ["192.0.2.11/24"], "eth1": ["198.51.100.11/24"]})", true), "", 0,
               Source("192.0.2.10,192.0.2.11") + R"(
            {"op":"PolicyRoute.EnableTable","args":[0,"eth1","198.51.100.10,198.51.100.11"],"result":0})"),
        Expect("NullReplyHasNoEntries", {kOff6}, R"({"gateways": {"GTYPE_V6": null}})", "", 0, R"({"op":"FilterList"})",
               Journal::Contains, "PolicyRoute.DeleteRule"),
        Expect("ObjectReplyFails", {kOn4}, R"({"gateways": {"GTYPE_V4": {"ifname": "eth0", "class": "wan"}}})",
               "Failed to GetGatewayListData\n", 255, R"({"op":"FilterList"}
            {"op":"TLIBCSzListFree"})",
               Journal::Contains, "PolicyRoute.AddRule"),
        Skip("MissingIfname", kOn4, R"({"gateway": "192.0.2.9", "class": "wan"})", "ifname", "192.0.2.9"),
        Skip("EmptyIfname", kOff4, R"({"ifname": "", "class": "wan"})", "ifname", R"([0,""])"),
        Skip("MissingGateway", kOn4, R"({"ifname": "eth9", "class": "wan"})", "gateway"),
        Skip("EmptyGateway", kOn6, R"({"ifname": "eth9", "gateway": "", "class": "wan"})", "gateway"),
        Skip("ObjectGateway", kOn4, R"({"ifname": "eth9", "gateway": {"a": 1}, "class": "wan"})", "gateway")),
    [](const ::testing::TestParamInfo<Row>& info) { return info.param.row.name; });

// WAN entries eth0 to eth3 in both families, each of the first three with one address.
std::string FourWans(const std::string& results) {
    return R"({"gateways": {
    "GTYPE_V4": [{"ifname": "eth0", "gateway": "192.0.2.1", "class": "wan"}, {"ifname": "eth1", "gateway": "192.0.2.1", "class": "wan"},
                 {"ifname": "eth2", "gateway": "192.0.2.1", "class": "wan"}, {"ifname": "eth3", "gateway": "192.0.2.1", "class": "wan"}],
    "GTYPE_V6": [{"ifname": "eth0", "gateway": "2001:db8::1", "class": "wan"}, {"ifname": "eth1", "gateway": "2001:db8::1", "class": "wan"},
                 {"ifname": "eth2", "gateway": "2001:db8::1", "class": "wan"}, {"ifname": "eth3", "gateway": "2001:db8::1", "class": "wan"}]},
    "ifconfig": {"eth0": "inet addr:192.0.2.10\n", "eth1": "inet addr:192.0.2.11\n", "eth2": "inet addr:192.0.2.12\n"},
    "ipv6_addresses": {"eth0": ["2001:db8::10"], "eth1": ["2001:db8::11"], "eth2": ["2001:db8::12"]},
    "results": {)" +
           results + "}}";
}

// Each failing step of each action, on the third of four WAN entries: its complaint on standard
// error and in the system log, the first two entries switched, the fourth untouched.
std::vector<Row> Failures() {
    struct Action {
        const char* name;
        const char* test;
        const char* ruleOp;
        const char* type;
    };
    const Action actions[] = {{kOn4, "EnableV4", "PolicyRoute.AddRule", "GTYPE_V4"},
                              {kOff4, "DisableV4", "PolicyRoute.DeleteRule", "GTYPE_V4"},
                              {kOn6, "EnableV6", "PolicyRoute.AddRule", "GTYPE_V6"},
                              {kOff6, "DisableV6", "PolicyRoute.DeleteRule", "GTYPE_V6"}};
    std::vector<Row> rows;
    for (const Action& a : actions) {
        auto failing = [&](const std::string& op, const std::string& err, const std::string& log) {
            rows.push_back(Expect(a.test + op.substr(op.find('.') + 1), {a.name}, FourWans("\"" + op + "\": [0, 0, -1]"),
                                  err + "\n", 255,
                                  R"({"op":"PolicyRoute.EnableTable","result":0}
                                     {"op":"PolicyRoute.EnableTable","result":0}
                                     {"op":"syslog","args":[3,"tarnnetdtool:N )" +
                                      log + R"("]})",
                                  Journal::Contains, R"("eth3")"));
        };
        failing(a.ruleOp, "Failed to add policy route rule for eth2", "Failed to add policy route rule for eth2-table");
        failing("PolicyRoute.DisableTable", "Failed to disable route table for eth2", "Failed to disable route table for [eth2]");
        failing("PolicyRoute.EnableTable", "Failed to enable route table for eth2", "Failed to enable route table for [eth2]");
        rows.push_back(Expect(std::string(a.test) + "GatewayList", {a.name},
                              R"({"results": {"NetClient.GetGatewayListData": [-1]}})", "Failed to GetGatewayListData\n", 255,
                              std::string(R"({"op":"NetClient.NetClient"}
            {"op":"PolicyRoute.PolicyRoute"}
            {"op":"NetClient.GetGatewayListData","args":[{"type":")") +
                                  a.type + R"("},null],"result":-1}
            {"op":"PolicyRoute.~PolicyRoute"}
            {"op":"NetClient.~NetClient"})",
                              Journal::Exact));
    }
    // Without an IPv4 address eth0 keeps its table off (no event with the arguments of EnableTable),
    // and eth1 follows.
    const std::pair<const char*, const char*> outputs[] = {{"NoOutput", ""},
                                                           {"OnlyInet6", R"(  inet6 addr: fe80::1/64 Scope:Link\n)"},
                                                           {"EmptyInetAddr", R"(  inet addr: Mask:255.0.0.0\n)"},
                                                           {"UndottedInet", R"(  inet 192.0.2\n)"}};
    for (const auto& [name, output] : outputs)
        rows.push_back(Expect(name, {kOn4}, Wans(output, kTwoAliases, true), "", 0,
                              R"({"op":"PolicyRoute.DisableTable","args":[0,"eth0"]}
                               {"op":"PolicyRoute.EnableTable","args":[0,"eth1","198.51.100.10"]})",
                              Journal::Contains, R"([0,"eth0",)"));
    return rows;
}

INSTANTIATE_TEST_SUITE_P(Failures, MultiGateway, ::testing::ValuesIn(Failures()),
                         [](const ::testing::TestParamInfo<Row>& info) { return info.param.row.name; });

}  // namespace

#include "blackbox/harness.h"

namespace {

using blackbox::Case;
using blackbox::Journal;

const char* const kOn4 = "--enable-multi-gateway";
const char* const kOff4 = "--disable-multi-gateway";
const char* const kOn6 = "--enable-multi-gateway-v6";
const char* const kOff6 = "--disable-multi-gateway-v6";

// These actions never write on standard output.
Case Row(const std::string& name, const std::vector<std::string>& args, const std::string& scenario, const std::string& err,
         int status, const std::string& journal, Journal check = Journal::Contains) {
    return Case{name, args, scenario, "", err, status, journal, check};
}

// WAN interface eth0 with the ifconfig output `eth0`, then, when `eth1`, eth1 with 198.51.100.10.
std::string Wans(const std::string& eth0, const std::string& more = "", bool eth1 = false) {
    std::string second = eth1 ? R"(, {"ifname": "eth1", "gateway": "198.51.100.1", "class": "wan"})" : "";
    return R"({"gateways": {"GTYPE_V4": [{"ifname": "eth0", "gateway": "192.0.2.1", "class": "wan"},
        {"ifname": "lbr0", "gateway": "192.0.2.1", "class": "lan"})" +
           second + R"(]}, "ifconfig": {"eth0": ")" + eth0 + R"(", "eth1": "inet addr:198.51.100.10\n"})" + more + "}";
}

const char* const kInetAddr = R"(eth0  Link encap:Ethernet\n  inet addr:192.0.2.10  Bcast:192.0.2.255  Mask:255.255.255.0\n)";
const char* const kAliases = R"(, "aliases": {"eth0": ["192.0.2.11/24", "192.0.2.12/24"], "eth1": ["198.51.100.11/24"]})";
const std::string kList4 = R"({"op":"NetClient.GetGatewayListData","args":[{"type":"GTYPE_V4"},null],"result":0})";

std::string Ifconfig(const char* ifname) {
    return R"({"op":"TLIBCPopen","args":["/sbin/ifconfig","r",")" + std::string(ifname) + R"("],"result":"ptr"}
        {"op":"TLIBCPclose","args":[null],"result":0})";
}

std::string Source(const std::string& ifname, const std::string& source, int family = 0) {
    return R"({"op":"PolicyRoute.EnableTable","args":[)" + std::to_string(family) + ",\"" + ifname + "\",\"" + source +
           "\"],\"result\":0}";
}

// An entry without an interface name, eth0 with two IPv6 addresses, a LAN entry, eth1 without any.
const std::string kWans6 = R"({"gateways": {"GTYPE_V6": [{"ifname": 7, "gateway": "2001:db8::9", "class": "wan"},
    {"ifname": "eth0", "gateway": "2001:db8::1", "class": "wan"}, {"ifname": "lbr0", "gateway": "fd00::1", "class": "lan"},
    {"ifname": "eth1", "gateway": "2001:db8:1::1", "class": "wan"}]}, "ipv6_addresses": {"eth0": ["2001:db8::10", "2001:db8::11"]}})";

// Each interface: its rule deleted, its table off, and on again with its addresses when it has any.
const char* const kDisabled6 = R"({"op":"NetClient.GetGatewayListData","args":[{"type":"GTYPE_V6"},null],"result":0}
        {"op":"syslog","args":[4,"tarnnetdtool:N Skip WAN entry 0 without a usable ifname"]}
        {"op":"PolicyRoute.DeleteRule","args":[1,"multi-gateway","eth0"],"result":0}
        {"op":"PolicyRoute.DisableTable","args":[1,"eth0"],"result":0}
        {"op":"IPAddress.GetIPv6Address","args":["eth0"],"result":[["2001:db8::10",0],["2001:db8::11",0]]}
        {"op":"PolicyRoute.EnableTable","args":[1,"eth0","2001:db8::10,2001:db8::11"],"result":0}
        {"op":"PolicyRoute.DeleteRule","args":[1,"multi-gateway","eth1"],"result":0}
        {"op":"PolicyRoute.DisableTable","args":[1,"eth1"],"result":0}
        {"op":"IPAddress.GetIPv6Address","args":["eth1"],"result":[]})";

std::string DeleteRule(int family, const char* ifname) {
    return R"({"op":"PolicyRoute.DeleteRule","args":[)" + std::to_string(family) + R"(,"multi-gateway",")" + ifname +
           R"("],"result":0})";
}

// The first failure, at eth0 of two WAN entries, ends the run: its complaint on standard error and in the log.
Case Fails(const char* name, const char* action, const char* op, const std::string& complaint, const std::string& log) {
    std::string results = R"(, "results": {")" + std::string(op) + R"(": [-1]})";
    bool v6 = action == kOn6 || action == kOff6;
    std::string scenario = v6 ? kWans6.substr(0, kWans6.size() - 1) + results + "}" : Wans(kInetAddr, results, true);
    return Row(name, {action}, scenario, complaint + " for eth0\n", 255, R"({"op":")" + std::string(op) + R"(","result":-1}
                  {"op":"syslog","args":[3,"tarnnetdtool:N )" + log + "\"]}");
}

// The entry lacks what the action needs and is skipped; eth1 after it is switched.
Case Skip(const std::string& name, const char* action, const std::string& entry, const std::string& member) {
    std::string list = "[" + entry + R"(, {"ifname": "eth1", "gateway": "192.0.2.1", "class": "wan"}])";
    return Row(name, {action},
               R"({"gateways": {"GTYPE_V4": )" + list + R"(, "GTYPE_V6": )" + list +
                   R"(}, "ipv6_addresses": {"eth1": ["2001:db8::11"]}, "ifconfig": {"eth1": "inet addr:192.0.2.11\n"}})",
               "", 0,
               R"({"op":"syslog","args":[4,"tarnnetdtool:N Skip WAN entry 0 without a usable )" + member + R"("]}
                         {"op":"PolicyRoute.EnableTable","args":[)" +
                   (action == kOn6 ? R"(1,"eth1","2001:db8::11")" : R"(0,"eth1","192.0.2.11")") + "]}");
}

// eth0 shows no IPv4 address: its table stays off and eth1 follows.
Case NoAddress(const char* name, const char* output) {
    return Row(name, {kOn4}, Wans(output, kAliases, true), "", 0,
               R"({"op":"PolicyRoute.DisableTable","args":[0,"eth0"],"result":0}
        {"op":"TLIBCPopen","args":["/sbin/ifconfig","r","eth1"],"result":"ptr"})"
               "\n" +
                   Source("eth1", "198.51.100.10,198.51.100.11"));
}

// clang-format off
BLACKBOX_SUITE(MultiGateway);
INSTANTIATE_TEST_SUITE_P(Rows, MultiGateway, ::testing::Values(
    Row("DisableV4TwoWans", {kOff4, "-6"}, Wans(kInetAddr, kAliases, true), "", 0, kList4 + "\n" + Ifconfig("eth0") + "\n" + DeleteRule(0, "eth0") + R"(
        {"op":"PolicyRoute.DisableTable","args":[0,"eth0"],"result":0}
        {"op":"TARNNetIpAliasList","args":["eth0",null],"result":0})" "\n" + Source("eth0", "192.0.2.10,192.0.2.11,192.0.2.12") + "\n" + Ifconfig("eth1") + "\n" + DeleteRule(0, "eth1") + R"(
        {"op":"PolicyRoute.DisableTable","args":[0,"eth1"],"result":0}
        {"op":"TARNNetIpAliasList","args":["eth1",null],"result":0})" "\n" + Source("eth1", "198.51.100.10,198.51.100.11"), Journal::Effects),
    Row("DisableV6", {kOff6, "-4", "eth0"}, kWans6, "", 0, kDisabled6, Journal::Effects),
    Row("NewerForm", {kOff4}, Wans(R"(eth0: flags=4163<UP>\n        inet 198.51.100.10  netmask 255.255.255.0\n)"), "", 0, Source("eth0", "198.51.100.10")),
    Row("FirstInetAddrLine", {kOn4}, Wans(R"(inet addr:192.0.2.10  Mask:255.0.0.0\n  inet addr:192.0.2.20\n)"), "", 0, Source("eth0", "192.0.2.10")),
    Row("NewerFormOnlyWithoutInetAddr", {kOn4}, Wans(R"(  inet 203.0.113.5  netmask 255.0.0.0\n  inet addr:192.0.2.10\n)"), "", 0, Source("eth0", "192.0.2.10")),
    Row("FirstDottedNewerForm", {kOff4}, Wans(R"(  inet fe80::1  x\n  inet 203.0.113.5 netmask\n  inet 203.0.113.6\n)"), "", 0, Source("eth0", "203.0.113.5")),
    Row("AliasQueryFails", {kOn4}, Wans(kInetAddr, std::string(kAliases) + R"(, "results": {"TARNNetIpAliasList": [1]})"), "", 0, Source("eth0", "192.0.2.10")),
    Row("AliasWithoutAddress", {kOff4}, Wans(kInetAddr, std::string(kAliases) + R"(, "results": {"TARNNetSeperateSubnet": [-1]})"), "", 0, Source("eth0", "192.0.2.10,,192.0.2.12")),
    NoAddress("NoOutput", ""), NoAddress("EmptyInetAddr", R"(  inet addr: Mask:255.0.0.0\n)"), NoAddress("UndottedInet", R"(  inet 192.0.2\n)"),
    Row("AliasListNotAllocated", {kOff4}, R"({"results": {"TLIBCSzListAlloc": [null]}})", "", 255, kList4 + "\n" + R"({"op":"syslog","args":[3,"tarnnetdtool:N Failed to allocate memory for multi-gateway of IP aliases."]})", Journal::Effects),
    Row("IfconfigCannotStart", {kOff4}, Wans(kInetAddr, R"(, "results": {"TLIBCPopen": [null]})"), "", 255, kList4 + "\n" + R"({"op":"TLIBCPopen","args":["/sbin/ifconfig","r","eth0"],"result":null}
        {"op":"syslog","args":[3,"tarnnetdtool:N Failed to execute cmd [/sbin/ifconfig]"]})", Journal::Effects),
    Row("WordListNotAllocated", {kOn4}, Wans(kInetAddr, R"(, "results": {"TLIBCSzListAlloc": ["ptr", null]})"), "", 255, kList4 + "\n" + Ifconfig("eth0") + "\n" + R"({"op":"syslog","args":[3,"tarnnetdtool:N Failed to alloc memory."]})", Journal::Effects),
    Row("NullReplyHasNoEntries", {kOff6}, R"({"gateways": {"GTYPE_V6": null}})", "", 0, R"({"op":"NetClient.GetGatewayListData","args":[{"type":"GTYPE_V6"},null],"result":0})", Journal::Effects),
    Row("ObjectReplyFails", {kOn4}, R"({"gateways": {"GTYPE_V4": {"ifname": "eth0", "class": "wan"}}})", "Failed to GetGatewayListData\n", 255, kList4, Journal::Effects),
    Row("ListFailsV4", {kOn4}, R"({"results": {"NetClient.GetGatewayListData": [-1]}})", "Failed to GetGatewayListData\n", 255, R"({"op":"NetClient.GetGatewayListData","args":[{"type":"GTYPE_V4"},null],"result":-1})", Journal::Effects),
    Row("ListFailsV6", {kOff6}, R"({"results": {"NetClient.GetGatewayListData": [-1]}})", "Failed to GetGatewayListData\n", 255, R"({"op":"NetClient.GetGatewayListData","args":[{"type":"GTYPE_V6"},null],"result":-1})", Journal::Effects),
    Skip("EmptyIfname", kOff4, R"({"ifname": "", "class": "wan"})", "ifname"),
    Skip("MissingGateway", kOn4, R"({"ifname": "eth9", "class": "wan"})", "gateway"),
    Skip("ObjectGateway", kOn6, R"({"ifname": "eth9", "gateway": {"a": 1}, "class": "wan"})", "gateway"),
    Fails("EnableV4AddRule", kOn4, "PolicyRoute.AddRule", "Failed to add policy route rule", "Failed to add policy route rule for eth0-table"),
    Fails("DisableV6DeleteRule", kOff6, "PolicyRoute.DeleteRule", "Failed to add policy route rule", "Failed to add policy route rule for eth0-table"),
    Fails("EnableV4DisableTable", kOn4, "PolicyRoute.DisableTable", "Failed to disable route table", "Failed to disable route table for [eth0]"),
    Fails("DisableV6DisableTable", kOff6, "PolicyRoute.DisableTable", "Failed to disable route table", "Failed to disable route table for [eth0]"),
    Fails("DisableV4EnableTable", kOff4, "PolicyRoute.EnableTable", "Failed to enable route table", "Failed to enable route table for [eth0]"),
    Fails("EnableV6EnableTable", kOn6, "PolicyRoute.EnableTable", "Failed to enable route table", "Failed to enable route table for [eth0]")),
    blackbox::CaseName());
// clang-format on

}  // namespace

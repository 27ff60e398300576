#include "blackbox/harness.h"

namespace {

using blackbox::Case;
using blackbox::Journal;

std::string Line(const std::string& op, const std::string& rest = "") { return "{\"op\":\"" + op + "\"" + rest + "}\n"; }
std::string Result(const std::string& op, const std::string& result) { return Line(op, ",\"result\":" + result); }
std::string Log(int priority, const std::string& text) {
    return Line("syslog", ",\"args\":[" + std::to_string(priority) + ",\"tarnnetdtool:N " + text + "\"]");
}
std::string Lock(bool taken) { return Result("FileLock.Lock", taken ? "true" : "false"); }
std::string Enum(const std::string& address, int length, const std::string& result) {
    return Line("Router6Prefix.EnumPrefix64",
                ",\"args\":[\"" + address + "\"," + std::to_string(length) + "],\"result\":" + result);
}
std::string Pool(const char* method, const std::string& prefix, const std::string& owner, bool ok = true) {
    return Line(std::string("Router6Prefix.") + method,
                ",\"args\":[\"" + prefix + "\",\"" + owner + "\"],\"result\":" + (ok ? "true" : "false"));
}
std::string Moved(const std::string& held, const std::string& owner, const std::string& to) {
    return Pool("Deallocate", held, owner) + Pool("Allocate", to, owner);
}

// The router lock around `body`, released whatever happens.
std::string Locked(const std::string& body) {
    return Line("FileLock.FileLock", R"(,"args":["/tmp/lock/lock_ipv6_router",true])") + body + Result("FileLock.Unlock", "0");
}

const std::string kA = "2001:db8:aa00::", kB = "2001:db8:aa00:1::";
const std::string kP0 = "2001:db8:1200::", kP1 = "2001:db8:1200:1::";
const std::string kVpnSettings = "/usr/tarn/etc/packages/Tunnelbay/tarnvpn.conf";
const std::string kVpnOn = R"(, "keyvalues": {")" + kVpnSettings + R"(": {"ovpn_enable_ipv6": "yes"}})";

// The walk over kP0 and kP1 with the given steps.
std::string Walked(const std::string& steps) {
    return Locked(Lock(true) + Result("Router6Attr.LoadConfig", "0") + Enum(kP0, 56, "[\"" + kP0 + "\",\"" + kP1 + "\"]") +
                  steps);
}
// The walk refused after its own `logs`, and its caller logging that against `ifname`.
std::string Refused(int loaded, const std::string& logs, const char* ifname = "eth1") {
    return Result("Router6Attr.LoadConfig", std::to_string(loaded)) + logs +
           Log(6, std::string("Failed to apply new prefix on ") + ifname);
}

std::string VpnQuery(int result) {
    return Line("TLIBCFileGetKeyValue",
                R"(,"args":[")" + kVpnSettings + R"(","ovpn_enable_ipv6",null,1024,0],"result":)" + std::to_string(result));
}
std::string SetLine(const std::string& line, int result) {
    return Line("TLIBCFileSetLine", R"(,"args":["/usr/tarn/etc/packages/Tunnelbay/openvpn/openvpn.conf","server-ipv6",")" + line +
                                        "\",0],\"result\":" + std::to_string(result));
}
std::string Restart(int result) {
    return Line("TLIBCExec",
                R"(,"args":["/var/packages/Tunnelbay/target/scripts/openvpn.sh","restart"],"result":)" + std::to_string(result));
}
std::string VpnMoved(const std::string& prefix) { return VpnQuery(4) + SetLine("server-ipv6 " + prefix + "/64", 1) + Restart(0); }

// eth1 with its stored prefix and allocations; 2001:db8:1200::/56 offers kP0 and kP1.
std::string Eth1(const std::string& prefix, const std::string& allocations, const std::string& more = "") {
    return R"({"router6": {"eth1": {"prefix": ")" + prefix + R"(", "allocations": )" + allocations +
           R"(}}, "prefix64": {"2001:db8:1200::/56": [")" + kP0 + R"(", ")" + kP1 + "\"]}" + more + "}";
}
std::string Pairs(const std::string& ownerA, const std::string& ownerB) {
    return R"([[")" + kA + R"(", ")" + ownerA + R"("], [")" + kB + R"(", ")" + ownerB + R"("]])";
}
std::string Vpn(const std::string& enable, const std::string& more = "") {
    return Eth1(kP0 + "/56", R"([[")" + kB + R"(", "ovpn"]])",
                R"(, "keyvalues": {")" + kVpnSettings + R"(": {"ovpn_enable_ipv6": ")" + enable + "\"}}" + more);
}

const std::vector<std::string> kApply = {"--apply-new-prefix", "eth1"}, kInit = {"--init-ipv6-router", "eth1", "dhcp"};
Case Row(const char* name, const std::vector<std::string>& args, const std::string& scenario, int status,
         const std::string& journal) {
    return Case{name, args, scenario, "", "", status, journal};
}

// The router of eth1 made and set up (`created` the result of Create), then `rest` before it is deleted.
std::string Created(const std::string& rest, const char* created = "true", const char* prepared = "1") {
    return Locked(Lock(true) + Line("Router6Factory.newRouterV6Instance", R"(,"args":["eth1","dhcp"],"result":"ptr")") +
                  Result("Router6.Prepare", prepared) + Result("Router6.Create", created) + rest + Line("Router6.~Router6"));
}
std::string Router(const char* type, const std::string& more = "") {
    return std::string(R"({"routers": {"eth1": {"type": ")") + type + "\"}}" + more + "}";
}
const std::string kLong(1100, 'f');
const std::string kStored =
    R"(, "router6": {"eth1": {"prefix": "2001:db8:1200::/56", "allocations": [["2001:db8:aa00::", "lan"]]}},
    "prefix64": {"2001:db8:1200::/56": ["2001:db8:1200::"]})";

// clang-format off
BLACKBOX_SUITE(IPv6Router);
INSTANTIATE_TEST_SUITE_P(Walk, IPv6Router, ::testing::Values(
    Row("FailedAllocationKeepsCursor", kApply, Eth1(kP0 + "/56", Pairs("lan", "wlan"), R"(, "results": {"Router6Prefix.Allocate": [false]})"), 0, Walked(Pool("Deallocate", kA, "lan") + Pool("Allocate", kP0, "lan", false) + Log(6, "Failed to allocate IPv6 prefix: " + kP0) + Moved(kB, "wlan", kP0))),
    Row("VpnFollowsCandidate", kApply, Eth1(kP0 + "/56", Pairs("ovpn", "ovpn"), kVpnOn + R"(, "results": {"Router6Prefix.Deallocate": [false]})"), 0, Walked(VpnMoved(kP0) + Pool("Deallocate", kA, "ovpn", false) + Log(6, "Failed to deallocate IPv6 prefix: " + kA) + VpnMoved(kP0) + Moved(kB, "ovpn", kP0))),
    Row("VpnIPv6UpperCase", kApply, Vpn("YES"), 0, Walked(VpnQuery(4) + Moved(kB, "ovpn", kP0))),
    Row("VpnIPv6TrailingBlank", kApply, Vpn("yes "), 0, Walked(VpnQuery(5) + Moved(kB, "ovpn", kP0))),
    Row("VpnIPv6Missing", kApply, Eth1(kP0 + "/56", R"([[")" + kB + R"(", "ovpn"]])"), 0, Walked(VpnQuery(0) + Moved(kB, "ovpn", kP0))),
    Row("RewriteFailsNoRestart", kApply, Vpn("yes", R"(, "results": {"TLIBCFileSetLine": [0]})"), 0, Walked(VpnQuery(4) + SetLine("server-ipv6 " + kP0 + "/64", 0) + Log(3, "Failed to modify openvpn ipv6 prefix to [" + kP0 + "]") + Moved(kB, "ovpn", kP0))),
    Row("RestartFails", kApply, Vpn("yes", R"(, "results": {"TLIBCExec": [-1]})"), 0, Walked(VpnQuery(4) + SetLine("server-ipv6 " + kP0 + "/64", 1) + Restart(-1) + Log(3, "Failed to restart OpenVPN") + Moved(kB, "ovpn", kP0))),
    Row("LineCutToBuffer", kApply, Vpn("yes", R"(, "results": {"Router6Prefix.EnumPrefix64": [[")" + kLong + "\"]]}"), 0, Locked(Lock(true) + Result("Router6Attr.LoadConfig", "0") + Enum(kP0, 56, "[\"" + kLong + "\"]") + VpnQuery(4) + SetLine(("server-ipv6 " + kLong + "/64").substr(0, 1023), 1) + Restart(0) + Moved(kB, "ovpn", kLong)))),
    blackbox::CaseName());

INSTANTIATE_TEST_SUITE_P(Refusals, IPv6Router, ::testing::Values(
    Row("TwoInterfaces", {"--apply-new-prefix", "eth1", "eth2"}, "", 255, Locked("")),
    Row("LockRefused", kApply, R"({"results": {"FileLock.Lock": [false]}})", 255, Locked(Lock(false) + Log(3, "Failed to lock in ApplyNewPrefix"))),
    Row("NoConfig", {"--apply-new-prefix", "eth9"}, "", 255, Locked(Lock(true) + Refused(-1, Log(6, "No IPv6 router config for eth9 available"), "eth9"))),
    Row("NoSlash", kApply, Eth1(kP0, "[]"), 255, Locked(Lock(true) + Refused(0, Log(6, "Unable to tokenize prefix [" + kP0 + "], skip")))),
    Row("TwoSlashes", kApply, Eth1("2001:db8::/56/7", "[]"), 255, Locked(Lock(true) + Refused(0, Log(6, "Unable to parse prefix length [2001:db8::/56/7], skip")))),
    Row("AboveInt32", kApply, Eth1("2001:db8::/2147483648", "[]"), 255, Locked(Lock(true) + Refused(0, Log(6, "Unable to parse prefix length [2001:db8::/2147483648], skip")))),
    Row("NegativeNothingAvailable", kApply, Eth1("2001:db8::/-1", "[]"), 255, Locked(Lock(true) + Refused(0, Enum("2001:db8::", -1, "[]") + Log(4, "Unable to enumerate available prefix")))),
    Row("PlusSignNoAllocations", kApply, Eth1(kP0 + "/+56", "[]"), 0, Walked(""))),
    blackbox::CaseName());

INSTANTIATE_TEST_SUITE_P(Init, IPv6Router, ::testing::Values(
    Row("NativeSkipsPrefixesPrepareIgnored", kInit, Router("native", kStored + R"(, "results": {"Router6.Prepare": [-1]})"), 0, Created("", "true", "-1")),
    Row("ThreeWords", {"--init-ipv6-router", "eth1", "dhcp", "x"}, Router("native"), 255, Locked("")),
    Row("LockRefused", kInit, Router("native", R"(, "results": {"FileLock.Lock": [false]})"), 255, Locked(Lock(false) + Log(3, "Failed to lock in InitIPv6Router"))),
    Row("NoRouter", kInit, "", 255, Locked(Lock(true) + Line("Router6Factory.newRouterV6Instance", R"(,"args":["eth1","dhcp"],"result":null)") + Log(6, "No IPv6 router available"))),
    Row("CreateFails", kInit, Router("dhcp", R"(, "results": {"Router6.Create": [false]})"), 255, Created(Log(6, "Create IPv6 router for eth1 failed"), "false")),
    Row("NativeIsCaseSensitive", kInit, Router("Native"), 255, Created(Refused(-1, Log(6, "No IPv6 router config for eth1 available")))),
    Row("OtherTypeHandsOut", kInit, Router("dhcp", kStored), 0, Created(Result("Router6Attr.LoadConfig", "0") + Enum(kP0, 56, "[\"" + kP0 + "\"]") + Moved(kA, "lan", kP0)))),
    blackbox::CaseName());

INSTANTIATE_TEST_SUITE_P(Queries, IPv6Router, ::testing::Values(
    Case{"NoConfig", {"--get-ipv6-router-interface", "eth1"}, "", "eth1\n", "", 0, R"({"op":"Router6Attr.LoadConfig","result":-1})"},
    Case{"NoInterface", {"--get-ipv6-router-interface"}, "", "", "", 255, ""}),
    blackbox::CaseName());
// clang-format on

}  // namespace

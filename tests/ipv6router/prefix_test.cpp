#include "blackbox/harness.h"
#include "ipv6router/events.h"

namespace {

using blackbox::Case;
using blackbox::Journal;
using namespace events;

const std::string kA = "2001:db8:aa00::", kB = "2001:db8:aa00:1::", kC = "2001:db8:aa00:2::";
const std::string kP0 = "2001:db8:1200::", kP1 = "2001:db8:1200:1::";
const char* const kVpnOn = R"(, "keyvalues": {"/usr/tarn/etc/packages/Tunnelbay/tarnvpn.conf": {"ovpn_enable_ipv6": "yes"}})";

// eth1 with its stored prefix and allocations; 2001:db8:1200::/56 offers kP0 and kP1.
std::string Eth1(const std::string& prefix, const std::string& allocations, const std::string& more = "") {
    return R"({"router6": {"eth1": {"prefix": ")" + prefix + R"(", "allocations": )" + allocations +
           R"(}}, "prefix64": {"2001:db8:1200::/56": [")" + kP0 + R"(", ")" + kP1 + "\"]}" + more + "}";
}

std::string Pairs(const std::string& ownerA, const std::string& ownerB) {
    return R"([[")" + kA + R"(", ")" + ownerA + R"("], [")" + kB + R"(", ")" + ownerB + R"("]])";
}

std::string Locked(const std::string& body) {
    return Line("FileLock.FileLock", R"(,"args":["/tmp/lock/lock_ipv6_router",true])") + body + Result("FileLock.Unlock", "0") +
           Line("FileLock.~FileLock");
}

// A walk over kP0 and kP1 with the given steps.
std::string Walked(const std::string& steps) {
    return Locked(Lock(true) + Load(0) + Enum(kP0, 56, "[\"" + kP0 + "\",\"" + kP1 + "\"]") + steps + Unload());
}

std::string VpnQuery(int result) {
    return Line("TLIBCFileGetKeyValue",
                R"(,"args":["/usr/tarn/etc/packages/Tunnelbay/tarnvpn.conf","ovpn_enable_ipv6",null,1024,0],"result":)" +
                    std::to_string(result));
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

std::string Moved(const std::string& held, const std::string& owner, const std::string& to) {
    return Pool("Deallocate", held, owner) + Pool("Allocate", to, owner);
}

Case Row(const char* name, const std::string& scenario, int status, const std::string& journal,
         std::vector<std::string> args = {"--apply-new-prefix", "eth1"}) {
    return Case{name, std::move(args), scenario, "", "", status, journal, Journal::Exact};
}

std::string Vpn(const std::string& enable, const std::string& more = "") {
    return Eth1(
        kP0 + "/56", R"([[")" + kB + R"(", "ovpn"]])",
        R"(, "keyvalues": {"/usr/tarn/etc/packages/Tunnelbay/tarnvpn.conf": {"ovpn_enable_ipv6": ")" + enable + "\"}}" + more);
}

std::string Unparsable(const std::string& prefix) {
    return Locked(Lock(true) + Refused(0, Log(6, "Unable to parse prefix length [" + prefix + "], skip")));
}

std::string NoneAvailable(const std::string& address, int length) {
    return Locked(Lock(true) + Refused(0, Enum(address, length, "[]") + Log(4, "Unable to enumerate available prefix")));
}

const std::string kLongCandidate(1100, 'f');

class ApplyNewPrefix : public ::testing::TestWithParam<Case> {};

TEST_P(ApplyNewPrefix, Row) { blackbox::Check(GetParam()); }

INSTANTIATE_TEST_SUITE_P(
    Walk, ApplyNewPrefix,
    ::testing::Values(Row("EveryOwnerMoved", Eth1(kP0 + "/56", Pairs("lan", "ovpn"), kVpnOn), 0,
                          Walked(Moved(kA, "lan", kP0) + VpnMoved(kP1) + Moved(kB, "ovpn", kP1))),
                      Row("NoAllocations", Eth1(kP0 + "/56", "[]"), 0, Walked("")),
                      Row("MorePairsThanPrefixes", Eth1(kP0 + "/56", R"([["a::", "x"], ["b::", "y"], ["c::", "z"]])"), 0,
                          Walked(Moved("a::", "x", kP0) + Moved("b::", "y", kP1))),
                      Row("FailedReleaseKeepsCandidate",
                          Eth1(kP0 + "/56", Pairs("lan", "wlan"), R"(, "results": {"Router6Prefix.Deallocate": [false]})"), 0,
                          Walked(Pool("Deallocate", kA, "lan", false) + Log(6, "Failed to deallocate IPv6 prefix: " + kA) +
                                 Moved(kB, "wlan", kP0))),
                      Row("FailedAllocationKeepsCursor",
                          Eth1(kP0 + "/56", Pairs("lan", "wlan"), R"(, "results": {"Router6Prefix.Allocate": [false]})"), 0,
                          Walked(Pool("Deallocate", kA, "lan") + Pool("Allocate", kP0, "lan", false) +
                                 Log(6, "Failed to allocate IPv6 prefix: " + kP0) + Moved(kB, "wlan", kP0))),
                      Row("TwoVpnPairs", Eth1(kP0 + "/56", Pairs("ovpn", "ovpn"), kVpnOn), 0,
                          Walked(VpnMoved(kP0) + Moved(kA, "ovpn", kP0) + VpnMoved(kP1) + Moved(kB, "ovpn", kP1))),
                      Row("VpnFollowsCandidateAfterFailedRelease",
                          Eth1(kP0 + "/56", Pairs("ovpn", "ovpn"),
                               std::string(kVpnOn) + R"(, "results": {"Router6Prefix.Deallocate": [false]})"),
                          0,
                          Walked(VpnMoved(kP0) + Pool("Deallocate", kA, "ovpn", false) +
                                 Log(6, "Failed to deallocate IPv6 prefix: " + kA) + VpnMoved(kP0) + Moved(kB, "ovpn", kP0))),
                      Row("VpnIPv6Off", Vpn("no"), 0, Walked(VpnQuery(3) + Moved(kB, "ovpn", kP0))),
                      Row("VpnIPv6UpperCase", Vpn("YES"), 0, Walked(VpnQuery(4) + Moved(kB, "ovpn", kP0))),
                      Row("VpnIPv6TrailingBlank", Vpn("yes "), 0, Walked(VpnQuery(5) + Moved(kB, "ovpn", kP0))),
                      Row("VpnIPv6Missing", Eth1(kP0 + "/56", R"([[")" + kB + R"(", "ovpn"]])"), 0,
                          Walked(VpnQuery(0) + Moved(kB, "ovpn", kP0))),
                      Row("RewriteFailsNoRestart", Vpn("yes", R"(, "results": {"TLIBCFileSetLine": [0]})"), 0,
                          Walked(VpnQuery(4) + SetLine("server-ipv6 " + kP0 + "/64", 0) +
                                 Log(3, "Failed to modify openvpn ipv6 prefix to [" + kP0 + "]") + Moved(kB, "ovpn", kP0))),
                      Row("RestartFails", Vpn("yes", R"(, "results": {"TLIBCExec": [-1]})"), 0,
                          Walked(VpnQuery(4) + SetLine("server-ipv6 " + kP0 + "/64", 1) + Restart(-1) +
                                 Log(3, "Failed to restart OpenVPN") + Moved(kB, "ovpn", kP0))),
                      Row("LineCutToBuffer",
                          Vpn("yes", R"(, "results": {"Router6Prefix.EnumPrefix64": [[")" + kLongCandidate + "\"]]}"), 0,
                          Locked(Lock(true) + Load(0) + Enum(kP0, 56, "[\"" + kLongCandidate + "\"]") + VpnQuery(4) +
                                 SetLine(("server-ipv6 " + kLongCandidate + "/64").substr(0, 1023), 1) + Restart(0) +
                                 Moved(kB, "ovpn", kLongCandidate) + Unload()))),
    blackbox::CaseName());

INSTANTIATE_TEST_SUITE_P(
    Refusals, ApplyNewPrefix,
    ::testing::Values(Row("NoInterface", "", 255, Locked(""), {"--apply-new-prefix"}),
                      Row("TwoInterfaces", "", 255, Locked(""), {"--apply-new-prefix", "eth1", "eth2"}),
                      Row("LockRefused", R"({"results": {"FileLock.Lock": [false]}})", 255,
                          Locked(Lock(false) + Log(3, "Failed to lock in ApplyNewPrefix"))),
                      Row("NoConfig", "", 255,
                          Locked(Lock(true) + Refused(-1, Log(6, "No IPv6 router config for eth9 available"), "eth9")),
                          {"--apply-new-prefix", "eth9"}),
                      Row("NoSlash", Eth1(kP0, "[]"), 255,
                          Locked(Lock(true) + Refused(0, Log(6, "Unable to tokenize prefix [" + kP0 + "], skip")))),
                      Row("TwoSlashes", Eth1("2001:db8::/56/7", "[]"), 255, Unparsable("2001:db8::/56/7")),
                      Row("EmptyLength", Eth1("2001:db8::/", "[]"), 255, Unparsable("2001:db8::/")),
                      Row("Letters", Eth1("2001:db8::/abc", "[]"), 255, Unparsable("2001:db8::/abc")),
                      Row("TrailingBlank", Eth1("2001:db8::/56 ", "[]"), 255, Unparsable("2001:db8::/56 ")),
                      Row("AboveInt32", Eth1("2001:db8::/2147483648", "[]"), 255, Unparsable("2001:db8::/2147483648")),
                      Row("NegativePassedOn", Eth1("2001:db8::/-1", "[]"), 255, NoneAvailable("2001:db8::", -1)),
                      Row("NothingAvailable", Eth1("2001:db8:9900::/56", "[]"), 255, NoneAvailable("2001:db8:9900::", 56)),
                      Row("PlusSign", Eth1(kP0 + "/+56", "[]"), 0, Walked("")),
                      Row("LeadingZero", Eth1(kP0 + "/056", "[]"), 0, Walked(""))),
    blackbox::CaseName());

}  // namespace

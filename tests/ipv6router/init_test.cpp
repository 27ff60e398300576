#include "blackbox/harness.h"
#include "ipv6router/events.h"

namespace {

using blackbox::Case;
using blackbox::Journal;
using namespace events;

// The factory and the lock around `body`, both made and released whatever happens.
std::string Around(const std::string& body) {
    return Line("Router6Factory.Router6Factory") + Line("FileLock.FileLock", R"(,"args":["/tmp/lock/lock_ipv6_router",true])") +
           body + Result("FileLock.Unlock", "0") + Line("FileLock.~FileLock") + Line("Router6Factory.~Router6Factory");
}

// The router of eth1 made and set up (`created` the result of Create), then `rest` before it is deleted.
std::string Created(const std::string& rest, const char* created = "true") {
    return Around(Lock(true) + Line("Router6Factory.newRouterV6Instance", R"(,"args":["eth1","dhcp"],"result":"ptr")") +
                  Result("Router6.Prepare", "1") + Result("Router6.Create", created) + rest + Line("Router6.~Router6"));
}

std::string Router(const char* type, const std::string& more = "") {
    return std::string(R"({"routers": {"eth1": {"type": ")") + type + "\"}}" + more + "}";
}

Case Row(const char* name, const std::string& scenario, int status, const std::string& journal, Journal check = Journal::Exact,
         std::vector<std::string> args = {"--init-ipv6-router", "eth1", "dhcp"}) {
    return Case{name, std::move(args), scenario, "", "", status, journal, check};
}

const char* const kStored =
    R"(, "router6": {"eth1": {"prefix": "2001:db8:1200::/56", "allocations": [["2001:db8:aa00::", "lan"]]}},
         "prefix64": {"2001:db8:1200::/56": ["2001:db8:1200::"]})";

class InitIPv6Router : public ::testing::TestWithParam<Case> {};

TEST_P(InitIPv6Router, Row) { blackbox::Check(GetParam()); }

INSTANTIATE_TEST_SUITE_P(
    Rows, InitIPv6Router,
    ::testing::Values(
        Row("NativeSkipsPrefixes", Router("native", kStored), 0, Created("")),
        Row("OneWord", Router("native"), 255, Around(""), Journal::Exact, {"--init-ipv6-router", "eth1"}),
        Row("ThreeWords", Router("native"), 255, Around(""), Journal::Exact, {"--init-ipv6-router", "eth1", "dhcp", "x"}),
        Row("LockRefused", Router("native", R"(, "results": {"FileLock.Lock": [false]})"), 255,
            Around(Lock(false) + Log(3, "Failed to lock in InitIPv6Router"))),
        Row("NoRouter", "", 255,
            Around(Lock(true) + Line("Router6Factory.newRouterV6Instance", R"(,"args":["eth1","dhcp"],"result":null)") +
                   Log(6, "No IPv6 router available"))),
        Row("CreateFails", Router("dhcp", R"(, "results": {"Router6.Create": [false]})"), 255,
            Created(Log(6, "Create IPv6 router for eth1 failed"), "false")),
        Row("PrepareResultIgnored", Router("native", R"(, "results": {"Router6.Prepare": [-1]})"), 0,
            Result("Router6.Prepare", "-1") + Result("Router6.Create", "true") + Line("Router6.~Router6"), Journal::Contains),
        Row("OtherTypeWithoutConfig", Router("dhcp"), 255,
            Created(Refused(-1, Log(6, "No IPv6 router config for eth1 available")))),
        Row("OtherTypeWithConfig", Router("dhcp", kStored), 0,
            Result("Router6.Create", "true") + Pool("Allocate", "2001:db8:1200::", "lan") + Line("Router6.~Router6") +
                Result("FileLock.Unlock", "0"),
            Journal::Contains),
        Row("NativeIsCaseSensitive", Router("Native"), 255,
            Result("Router6Attr.LoadConfig", "-1") + Line("Router6.~Router6") + Result("FileLock.Unlock", "0"),
            Journal::Contains),
        Row("UnparsableLength", Router("dhcp", R"(, "router6": {"eth1": {"prefix": "2001:db8::/56/7"}})"), 255,
            Created(Refused(0, Log(6, "Unable to parse prefix length [2001:db8::/56/7], skip"))))),
    blackbox::CaseName());

}  // namespace

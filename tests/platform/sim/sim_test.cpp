// The simulated platform in-process: scenario checks, scripted results, journal forms.
#include "blackbox/harness.h"
#include "platform/sim/sim.h"
#include "tarncore.h"
#include "tarnnetsdk.h"
#include "tarnnetwork.h"

#include <gtest/gtest.h>
#include <syslog.h>
#include <unistd.h>

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <sstream>

namespace {

namespace fs = std::filesystem;
using namespace tarnnetwork;
using tarn::network::ipv6::router::Router6;
using tarn::network::ipv6::router::Router6Attr;
using tarn::network::ipv6::router::Router6Factory;

class Sim : public ::testing::Test {
protected:
    void SetUp() override {
        dir_ = fs::temp_directory_path() / ("tarnsim-unit-" + std::to_string(::getpid()));
        fs::create_directories(dir_);
    }
    void TearDown() override {
        sim::Load(nullptr, nullptr);
        fs::remove_all(dir_);
    }
    // Starts from `scenario`; "" when accepted, else the reason.
    std::string Start(const std::string& scenario) {
        std::ofstream(dir_ / "scenario.json") << scenario;
        return sim::Load((dir_ / "scenario.json").c_str(), (dir_ / "journal").c_str());
    }
    std::vector<Json::Value> Journal() const {
        std::ifstream in(dir_ / "journal");
        std::ostringstream text;
        text << in.rdbuf();
        return blackbox::ParseLines(text.str());
    }
    fs::path dir_;
};

struct BadCase {
    const char* scenario;
    const char* reason;
};

void PrintTo(const BadCase& c, std::ostream* os) { *os << c.reason; }

class BadScenario : public Sim, public ::testing::WithParamInterface<BadCase> {};

TEST_P(BadScenario, IsRefusedWithItsReason) {
    EXPECT_EQ(Start(GetParam().scenario), std::string("bad scenario: ") + GetParam().reason);
}

INSTANTIATE_TEST_SUITE_P(
    Cases, BadScenario,
    ::testing::Values(
        BadCase{"[]", "scenario: expected an object"}, BadCase{"{\"gatways\": {}}", "gatways: no such member"},
        BadCase{"{\"results\": {\"NetClient.Nope\": [0]}}", "results.NetClient.Nope: no such op"},
        BadCase{"{\"results\": {\"PolicyRoute.AddRule\": 0}}", "results.PolicyRoute.AddRule: expected an array"},
        BadCase{"{\"results\": {\"PolicyRoute.AddRule\": [0, true]}}", "results.PolicyRoute.AddRule[1]: expected an integer"},
        BadCase{"{\"results\": {\"FileLock.Lock\": [1]}}", "results.FileLock.Lock[0]: expected true or false"},
        BadCase{"{\"results\": {\"TLIBCPopen\": [\"yes\"]}}", "results.TLIBCPopen[0]: expected null or \"ptr\""},
        BadCase{"{\"duid\": 5}", "duid: expected a text"},
        BadCase{"{\"ifconfig\": {\"eth0\": [\"x\"]}}", "ifconfig.eth0: expected a text"},
        BadCase{"{\"aliases\": {\"eth0\": [\"a\", 1]}}", "aliases.eth0[1]: expected a text"},
        BadCase{"{\"networks\": {\"ipv5\": {}}}", "networks.ipv5: expected ipv4 or ipv6"},
        BadCase{"{\"networks\": {\"ipv4\": {\"lbr0\": [[\"192.0.2.0\", \"24\"]]}}}",
                "networks.ipv4.lbr0[0]: expected [text, integer]"},
        BadCase{"{\"router6\": {\"eth0\": {\"allocations\": [[\"a\"]]}}}", "router6.eth0.allocations[0]: expected [text, text]"},
        BadCase{"{\"keyvalues\": {\"/f\": {\"k\": 1}}}", "keyvalues./f.k: expected a text"}));

TEST_F(Sim, MalformedJsonNamesTheFile) {
    std::string reason = Start("{\"duid\": ");
    EXPECT_EQ(reason.rfind("bad scenario: cannot parse " + (dir_ / "scenario.json").string() + ": ", 0), 0u) << reason;
    EXPECT_EQ(reason.find('\n'), std::string::npos);
    EXPECT_EQ(sim::Load((dir_ / "missing.json").c_str(), nullptr).rfind("bad scenario: cannot read ", 0), 0u);
}

TEST_F(Sim, ResultsAreUsedInOrderThenTheDefaultReturns) {
    ASSERT_EQ(Start(R"({"results": {"PolicyRoute.EnableTable": [0, -1], "NetClient.IsServerReady": [false]}})"), "");
    network::PolicyRoute route;
    network::IP_TYPE v4 = network::IPV4;
    EXPECT_EQ(route.EnableTable(v4, "eth0", "192.0.2.1"), 0);
    EXPECT_EQ(route.EnableTable(v4, "eth0", "192.0.2.1"), -1);
    EXPECT_EQ(route.EnableTable(v4, "eth0", "192.0.2.1"), 0);
    dbus::NetClient client;
    EXPECT_FALSE(client.IsServerReady());
    EXPECT_TRUE(client.IsServerReady());
}

TEST_F(Sim, JournalForms) {
    ASSERT_EQ(Start(R"({"gateways": {"GTYPE_V4": [{"ifname": "eth0", "class": "wan"}, {"ifname": "eth1", "class": "lan"}]}})"),
              "");
    {
        dbus::NetClient client;
        Json::Value request, response;
        request["type"] = "GTYPE_V4";
        EXPECT_EQ(client.GetGatewayListData(request, response), 0);
        network::FilterList("wan", response);
        EXPECT_EQ(response.size(), 1u);
        network::PolicyRouteRule rule;
        rule.type = network::IPV4;
        rule.ip = std::string("NULL");
        rule.service = "multi-gateway";
        network::PolicyRoute().AddRule(rule);
        syslog(3, "%s:%d Failed for [%s]", "tarnnetdtool", 12, "eth0 %s");
        sleep(1);
    }
    EXPECT_TRUE(blackbox::JournalEquals(Journal(), R"(
        {"op":"NetClient.NetClient"}
        {"op":"NetClient.GetGatewayListData","args":[{"type":"GTYPE_V4"},null],"result":0}
        {"op":"FilterList","args":["wan",null],"result":0}
        {"op":"PolicyRoute.PolicyRoute"}
        {"op":"PolicyRoute.AddRule","args":[{"type":0,"ip":"NULL","mask":null,"gateway":null,"prefix_length":"","interface":"","service":"multi-gateway"}],"result":0}
        {"op":"PolicyRoute.~PolicyRoute"}
        {"op":"syslog","args":[3,"tarnnetdtool:12 Failed for [eth0 %s]"]}
        {"op":"sleep","args":[1]}
        {"op":"NetClient.~NetClient"}
    )"));
}

TEST_F(Sim, PopenStreamsTheScenarioOutputLineByLine) {
    ASSERT_EQ(
        Start(R"({"ifconfig": {"eth0": "eth0  Link\n  inet addr:192.0.2.10\n"}, "results": {"TLIBCPopen": ["ptr", null]}})"), "");
    FILE* stream = TLIBCPopen("/sbin/ifconfig", "r", "eth0", nullptr);
    ASSERT_NE(stream, nullptr);
    char line[1024];
    ASSERT_NE(fgets(line, sizeof line, stream), nullptr);
    EXPECT_STREQ(line, "eth0  Link\n");
    ASSERT_NE(fgets(line, sizeof line, stream), nullptr);
    EXPECT_STREQ(line, "  inet addr:192.0.2.10\n");
    EXPECT_EQ(fgets(line, sizeof line, stream), nullptr);
    TLIBCPclose(stream);
    EXPECT_EQ(TLIBCPopen("/sbin/ifconfig", "r", "eth0", nullptr), nullptr);
    EXPECT_TRUE(blackbox::JournalEquals(Journal(), R"(
        {"op":"TLIBCPopen","args":["/sbin/ifconfig","r","eth0"],"result":"ptr"}
        {"op":"TLIBCPclose","args":[null],"result":0}
        {"op":"TLIBCPopen","args":["/sbin/ifconfig","r","eth0"],"result":null}
    )"));
}

TEST_F(Sim, AliasesKeyValuesAndExec) {
    ASSERT_EQ(Start(R"({"aliases": {"eth0": ["192.0.2.11/24", "192.0.2.12/24"]},
                        "keyvalues": {"/etc/vpn.conf": {"ovpn_enable_ipv6": "yes"}},
                        "results": {"TARNNetIpAliasList": [0, 1], "TLIBCExec": [-1]}})"),
              "");
    TLIBCSzList* list = TLIBCSzListAlloc(1024);
    ASSERT_EQ(TARNNetIpAliasList("eth0", &list), 0);
    ASSERT_EQ(TARNNetIpAliasList("eth0", &list), 1);
    EXPECT_EQ(list->nItem, 2);
    char address[20] = {};
    int length = 0;
    TARNNetSeperateSubnet(TLIBCSzListGet(list, 1), address, sizeof address, &length);
    EXPECT_STREQ(address, "192.0.2.12");
    TLIBCSzListFree(list);
    char value[1024] = {};
    EXPECT_EQ(TLIBCFileGetKeyValue("/etc/vpn.conf", "ovpn_enable_ipv6", value, sizeof value, 0), 4);
    EXPECT_STREQ(value, "yes");
    EXPECT_EQ(TLIBCFileGetKeyValue("/etc/vpn.conf", "other", value, sizeof value, 0), 0);
    EXPECT_EQ(TLIBCExec("/bin/script.sh", "restart", nullptr, nullptr, nullptr), -1);
    EXPECT_TRUE(blackbox::JournalContains(Journal(), R"(
        {"op":"TARNNetIpAliasList","args":["eth0",null],"result":0}
        {"op":"TARNNetIpAliasList","args":["eth0",null],"result":1}
        {"op":"TARNNetSeperateSubnet","args":["192.0.2.12/24",null,20,null],"result":0}
        {"op":"TLIBCFileGetKeyValue","args":["/etc/vpn.conf","ovpn_enable_ipv6",null,1024,0],"result":4}
        {"op":"TLIBCExec","args":["/bin/script.sh","restart"],"result":-1}
    )"));
}

TEST_F(Sim, RouterAndLock) {
    ASSERT_EQ(Start(R"({"routers": {"eth0": {"type": "native"}},
                        "router6": {"eth0": {"type": "6to4", "prefix": "2001:db8::/56", "allocations": [["2001:db8::", "ovpn"]]}},
                        "results": {"Router6Factory.newRouterV6Instance": [null]}})"),
              "");
    Router6Factory factory;
    EXPECT_EQ(factory.newRouterV6Instance("eth0", "x"), nullptr);
    std::unique_ptr<Router6> router(factory.newRouterV6Instance("eth0", "x"));
    ASSERT_NE(router, nullptr);
    EXPECT_EQ(router->type, "native");
    EXPECT_EQ(factory.newRouterV6Instance("eth9", "x"), nullptr);
    Router6Attr attr;
    attr.ifname = "eth0";
    EXPECT_EQ(attr.LoadConfig(), 0);
    EXPECT_EQ(attr.prefix, "2001:db8::/56");
    ASSERT_EQ(attr.allocations.size(), 1u);
    EXPECT_EQ(attr.allocations[0].second, "ovpn");
    attr.ifname = "eth1";
    EXPECT_EQ(attr.LoadConfig(), -1);
    utils::FileLock lock("/tmp/lock/lock_ipv6_router", true);
    EXPECT_TRUE(lock.Lock());
}

}  // namespace

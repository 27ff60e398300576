#include "actions.h"
#include "blackbox/harness.h"

#include <set>
#include <string>

namespace {

using blackbox::Case;

// The usage text as the tool's users see it: each action line is its words, a separator made
// of `count` copies of `sep` (a trailing blank first where there is one), and a description;
// `bytes` is the length that scripts and documentation rely on.
struct UsageLine {
    const char* words;
    const char* separator;
    const char* description;
    size_t bytes;
};

const UsageLine kUsage[] = {
    {" --set-slave-data type interface slave(yes/no)", "             ", "{set slave info for an interface}", 92},
    {" --get-interface-by-class type class", "\t\t\t\t\t\t", "{get specific interfaces by class}", 76},
    {" --get-gateway-list-data type", "\t\t\t\t\t\t\t\t", "{get gateway list data}", 60},
    {" --get-route-tables type", "", "", 24},
    {" --refresh-gateway type", "\t\t\t\t\t\t\t\t\t", "{refresh the default gateway, type: -4,-6 or all}", 81},
    {" --reset-ipv6-module <ifname>", "\t\t\t\t\t\t\t\t", "{reset the ipv6 module}", 60},
    {" --is-server-ready", "\t\t\t\t\t\t\t\t\t\t\t", "{Check if tarnnetd is ready}", 57},
    {" --del-gateway-info type interface", "\t\t\t\t\t\t\t", "{del a gateway info to /etc/route-mgt/gateway_priority}", 96},
    {" --add-gateway-info type priority interface gateway dns [class]", " \t\t",
     "{Add a gateway info to /etc/route-mgt/gateway_priority}", 121},
    {" --gen-DUID", "", "", 11},
    {" --add-policy-route-rule type service interface ip mask/prefix-length gateway", "\t", "{add a route rule to policy table}",
     112},
    {" --del-policy-route-rule type service interface", "\t\t\t", "{delete a route rule from policy table}", 89},
    {" --enable-route-table type interface source", "\t\t\t\t", "{enable policy route table for interface}", 88},
    {" --disable-route-table type interface", "\t\t\t\t\t\t", "{disable policy route table for interface}", 85},
    {" --refresh-route-table type interface source", "\t\t\t\t\t", "{refresh policy route table for interface}", 91},
    {" --enable-multi-gateway", "", "", 23},
    {" --disable-multi-gateway", "", "", 24},
    {" --enable-multi-gateway-v6", "", "", 26},
    {" --disable-multi-gateway-v6", "", "", 27},
    {" --init-ipv6-router", "", "", 19},
    {" --get-ipv6-router-interface interface", "", "", 38},
    {" --apply-new-prefix", "", "", 19},
    {" --get-internal-network", "", "", 23},
    {" --refresh-static-route-rules type", "\t\t\t\t\t\t\t", "{refresh static route rules, type: -4 -6 or empty is both}", 99},
    {" --copy-gateway-info type src_ifname dest_ifname", "", "", 48},
};

std::string Usage(const std::string& program) {
    std::string text = "Usage: " + program + " [action] [arg1] [arg2] [arg3]...\nNetwork actions are:\n";
    for (const UsageLine& line : kUsage) {
        std::string row = std::string(line.words) + line.separator + line.description;
        EXPECT_EQ(row.size(), line.bytes) << line.words;
        text += row + "\n";
    }
    return text + "\n";
}

const char* const kBannerOnly = R"({"op":"TLIBCBannerPrint"})";

class Dispatcher : public ::testing::TestWithParam<Case> {};

TEST_P(Dispatcher, Row) { blackbox::Check(GetParam()); }

INSTANTIATE_TEST_SUITE_P(
    Rows, Dispatcher,
    ::testing::Values(
        Case{"NoArgument", {}, "", Usage("tarnnetdtool"), "No argument\n", 255, kBannerOnly},
        Case{"EmptyAction", {""}, "", Usage("tarnnetdtool"), "Command [] not found\n", 255, kBannerOnly},
        Case{
            "Unknown", {"--frobnicate", "-4"}, "", Usage("tarnnetdtool"), "Command [--frobnicate] not found\n", 255, kBannerOnly},
        Case{"UpperCase", {"--GEN-DUID"}, "", Usage("tarnnetdtool"), "Command [--GEN-DUID] not found\n", 255, kBannerOnly},
        Case{"LowerCase", {"--gen-duid"}, "", Usage("tarnnetdtool"), "Command [--gen-duid] not found\n", 255, kBannerOnly},
        Case{"Abbreviated", {"--gen"}, "", Usage("tarnnetdtool"), "Command [--gen] not found\n", 255, kBannerOnly},
        Case{"TrailingBlank", {"--gen-DUID "}, "", Usage("tarnnetdtool"), "Command [--gen-DUID ] not found\n", 255, kBannerOnly}),
    blackbox::CaseName());

TEST(Dispatcher, UsageNamesTheProgramByItsShortName) {
    blackbox::Run run = blackbox::RunSim({}, "", "/usr/local/sbin/tarnnetdtool");
    EXPECT_EQ(run.out, Usage("tarnnetdtool"));
    run = blackbox::RunSim({"--nope"}, "", "./netd-tool");
    EXPECT_EQ(run.out, Usage("netd-tool"));
}

TEST(Dispatcher, BadScenarioStopsBeforeTheTool) {
    blackbox::Run run = blackbox::RunSim({"--gen-DUID"}, "{\"results\": {\"GenDUID\": [1]}}");
    EXPECT_EQ(run.status, 255);
    EXPECT_EQ(run.out, "");
    EXPECT_EQ(run.err, "tarnnetdtool-sim: bad scenario: results.GenDUID[0]: expected a text\n");
    EXPECT_TRUE(run.journal.empty());
}

TEST(ActionTable, NamesAreUniqueHandledAndListed) {
    std::string usage = Usage("tarnnetdtool");
    EXPECT_EQ(kActions.size(), 26u);
    std::set<std::string> names;
    for (const Action& action : kActions) {
        EXPECT_TRUE(names.insert(action.name).second) << "duplicate " << action.name;
        EXPECT_NE(action.handler, nullptr) << action.name;
        if (std::string(action.name) == "--get-gateway-data-by-interface") continue;
        bool listed = false;
        for (const char* end : {" ", "\t", "\n"})
            listed = listed || usage.find(std::string("\n ") + action.name + end) != std::string::npos;
        EXPECT_TRUE(listed) << action.name;
    }
}

}  // namespace

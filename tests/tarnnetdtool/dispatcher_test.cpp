#include "blackbox/harness.h"

#include <string>

namespace {

using blackbox::Case;

const std::string kActionLines =
    " --set-slave-data type interface slave(yes/no)             {set slave info for an interface}\n"
    " --get-interface-by-class type class\t\t\t\t\t\t{get specific interfaces by class}\n"
    " --get-gateway-list-data type\t\t\t\t\t\t\t\t{get gateway list data}\n"
    " --get-route-tables type\n"
    " --refresh-gateway type\t\t\t\t\t\t\t\t\t{refresh the default gateway, type: -4,-6 or all}\n"
    " --reset-ipv6-module <ifname>\t\t\t\t\t\t\t\t{reset the ipv6 module}\n"
    " --is-server-ready\t\t\t\t\t\t\t\t\t\t\t{Check if tarnnetd is ready}\n"
    " --del-gateway-info type interface\t\t\t\t\t\t\t{del a gateway info to /etc/route-mgt/gateway_priority}\n"
    " --add-gateway-info type priority interface gateway dns [class] \t\t{Add a gateway info to /etc/route-mgt/gateway_priority}\n"
    " --gen-DUID\n"
    " --add-policy-route-rule type service interface ip mask/prefix-length gateway\t{add a route rule to policy table}\n"
    " --del-policy-route-rule type service interface\t\t\t{delete a route rule from policy table}\n"
    " --enable-route-table type interface source\t\t\t\t{enable policy route table for interface}\n"
    " --disable-route-table type interface\t\t\t\t\t\t{disable policy route table for interface}\n"
    " --refresh-route-table type interface source\t\t\t\t\t{refresh policy route table for interface}\n"
    " --enable-multi-gateway\n --disable-multi-gateway\n --enable-multi-gateway-v6\n --disable-multi-gateway-v6\n"
    " --init-ipv6-router\n --get-ipv6-router-interface interface\n --apply-new-prefix\n --get-internal-network\n"
    " --refresh-static-route-rules type\t\t\t\t\t\t\t{refresh static route rules, type: -4 -6 or empty is both}\n"
    " --copy-gateway-info type src_ifname dest_ifname\n\n";

std::string Usage(const std::string& program) {
    return "Usage: " + program + " [action] [arg1] [arg2] [arg3]...\nNetwork actions are:\n" + kActionLines;
}

const char* const kBanner = R"({"op":"TLIBCBannerPrint"})";

// Names match whole and exactly.
BLACKBOX_SUITE(Dispatcher);
INSTANTIATE_TEST_SUITE_P(
    Rows, Dispatcher,
    ::testing::Values(
        Case{"NoArgument", {}, "", Usage("tarnnetdtool"), "No argument\n", 255, kBanner},
        Case{"UpperCase", {"--GEN-DUID"}, "", Usage("tarnnetdtool"), "Command [--GEN-DUID] not found\n", 255, kBanner},
        Case{"Abbreviated", {"--gen", "-4"}, "", Usage("tarnnetdtool"), "Command [--gen] not found\n", 255, kBanner}),
    blackbox::CaseName());

TEST(Dispatcher, UsageNamesTheProgramByItsShortName) {
    EXPECT_EQ(blackbox::RunSim({}, "", "/usr/local/sbin/netd-tool").out, Usage("netd-tool"));
}

}  // namespace

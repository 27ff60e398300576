#include "actions.h"

#include "gateway/gateway.h"
#include "ipv6router/ipv6router.h"
#include "multigateway/multigateway.h"
#include "route/route.h"
#include "tarncore.h"

#include <errno.h>

#include <iostream>

const std::vector<Action> kActions = {
    {"--get-gateway-data-by-interface", GetGatewayDataByInterface},
    {"--set-slave-data", SetSlaveData},
    {"--get-interface-by-class", GetInterfaceByClass},
    {"--get-gateway-list-data", GetGatewayListData},
    {"--get-route-tables", GetRouteTables},
    {"--refresh-gateway", RefreshGateway},
    {"--reset-ipv6-module", ResetIPv6Module},
    {"--is-server-ready", IsServerReady},
    {"--add-gateway-info", AddGatewayInfo},
    {"--del-gateway-info", DelGatewayInfo},
    {"--gen-DUID", GenDUID},
    {"--add-policy-route-rule", AddPolicyRouteRule},
    {"--del-policy-route-rule", DelPolicyRouteRule},
    {"--enable-route-table", EnableRouteTable},
    {"--disable-route-table", DisableRouteTable},
    {"--refresh-route-table", RefreshRouteTable},
    {"--enable-multi-gateway", EnableMultiGateway},
    {"--disable-multi-gateway", DisableMultiGateway},
    {"--enable-multi-gateway-v6", EnableMultiGatewayV6},
    {"--disable-multi-gateway-v6", DisableMultiGatewayV6},
    {"--init-ipv6-router", InitIPv6Router},
    {"--get-ipv6-router-interface", GetIPv6RouterInterface},
    {"--apply-new-prefix", ApplyNewPrefix},
    {"--get-internal-network", GetInternalNetwork},
    {"--refresh-static-route-rules", RefreshStaticRouteRules},
    {"--copy-gateway-info", CopyGatewayInfo},
};

namespace {

// Action lines of the usage text, in their own order; "--get-gateway-data-by-interface" is
// deliberately not listed.
const char* const kUsageLines[] = {
    "Network actions are:",
    " --set-slave-data type interface slave(yes/no)             {set slave info for an interface}",
    " --get-interface-by-class type class\t\t\t\t\t\t{get specific interfaces by class}",
    " --get-gateway-list-data type\t\t\t\t\t\t\t\t{get gateway list data}",
    " --get-route-tables type",
    " --refresh-gateway type\t\t\t\t\t\t\t\t\t{refresh the default gateway, type: -4,-6 or all}",
    " --reset-ipv6-module <ifname>\t\t\t\t\t\t\t\t{reset the ipv6 module}",
    " --is-server-ready\t\t\t\t\t\t\t\t\t\t\t{Check if tarnnetd is ready}",
    " --del-gateway-info type interface\t\t\t\t\t\t\t{del a gateway info to /etc/route-mgt/gateway_priority}",
    " --add-gateway-info type priority interface gateway dns [class] \t\t{Add a gateway info to /etc/route-mgt/gateway_priority}",
    " --gen-DUID",
    " --add-policy-route-rule type service interface ip mask/prefix-length gateway\t{add a route rule to policy table}",
    " --del-policy-route-rule type service interface\t\t\t{delete a route rule from policy table}",
    " --enable-route-table type interface source\t\t\t\t{enable policy route table for interface}",
    " --disable-route-table type interface\t\t\t\t\t\t{disable policy route table for interface}",
    " --refresh-route-table type interface source\t\t\t\t\t{refresh policy route table for interface}",
    " --enable-multi-gateway",
    " --disable-multi-gateway",
    " --enable-multi-gateway-v6",
    " --disable-multi-gateway-v6",
    " --init-ipv6-router",
    " --get-ipv6-router-interface interface",
    " --apply-new-prefix",
    " --get-internal-network",
    " --refresh-static-route-rules type\t\t\t\t\t\t\t{refresh static route rules, type: -4 -6 or empty is both}",
    " --copy-gateway-info type src_ifname dest_ifname",
};

}  // namespace

void PrintUsage() {
    TLIBCBannerPrint();
    std::cout << "Usage: " << program_invocation_short_name << " [action] [arg1] [arg2] [arg3]..." << std::endl;
    for (const char* line : kUsageLines) std::cout << line << std::endl;
    std::cout << std::endl;
}

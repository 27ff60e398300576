#include "conventions.h"
#include "route/route.h"

#include <json/value.h>

#include <iostream>
#include <optional>

using tarnnetwork::network::IP_TYPE;
using tarnnetwork::network::StaticRoute;

namespace {

constexpr int kGetTablesArgc = 3;

int Refresh(StaticRoute& route, int (StaticRoute::*refresh)(), const char* complaint) {
    if ((route.*refresh)() >= 0) return kOk;
    std::cerr << complaint << std::endl;
    return kFail;
}

}  // namespace

int GetRouteTables(int argc, char** argv) {
    StaticRoute route;
    Json::Value tables;
    if (!HasArgs(argc, kGetTablesArgc)) return kFail;
    std::optional<IP_TYPE> family = ReadFamily(argv[2]);
    if (!family) return kFail;
    if (route.GetRouteTables(*family, tables) < 0) {
        std::cerr << "Failed to GetRouteTables" << std::endl;
        return kFail;
    }
    std::cout << tables.toStyledString() << std::endl;
    return kOk;
}

// Without a family both are refreshed in one call; a present but unmatched family (also an
// empty one) refreshes nothing and is no error, so scripts may pass their own words through.
int RefreshStaticRouteRules(int argc, char** argv) {
    StaticRoute route;
    if (argc <= 2) return Refresh(route, &StaticRoute::RefreshRules, "Failed to refresh static route rules");
    std::optional<IP_TYPE> family = FamilyOf(argv[2]);
    if (family == tarnnetwork::network::IPV4)
        return Refresh(route, &StaticRoute::RefreshIpv4Rules, "Failed to refresh ipv4 static route rules");
    if (family == tarnnetwork::network::IPV6)
        return Refresh(route, &StaticRoute::RefreshIpv6Rules, "Failed to refresh ipv6 static route rules");
    return kOk;
}

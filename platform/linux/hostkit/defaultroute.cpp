#include "hostkit/netlink.h"

#include <sys/socket.h>

namespace tarnlinux::nl {

Route DefaultRoute(int family, int ifindex, nl_addr* gateway, uint8_t protocol, uint32_t metric) {
    Route route(rtnl_route_alloc());
    Addr any(nl_addr_alloc(0));
    rtnl_nexthop* hop = rtnl_route_nh_alloc();
    if (!route || !any || hop == nullptr) {
        if (hop != nullptr) rtnl_route_nh_free(hop);
        return nullptr;
    }
    nl_addr_set_family(any.get(), family);
    nl_addr_set_prefixlen(any.get(), 0);
    rtnl_route_set_family(route.get(), static_cast<uint8_t>(family));
    rtnl_route_set_table(route.get(), RT_TABLE_MAIN);
    rtnl_route_set_protocol(route.get(), protocol);
    if (metric != 0) rtnl_route_set_priority(route.get(), metric);
    rtnl_route_set_scope(route.get(), RT_SCOPE_UNIVERSE);
    rtnl_route_set_type(route.get(), RTN_UNICAST);
    rtnl_route_set_dst(route.get(), any.get());
    rtnl_route_nh_set_ifindex(hop, ifindex);
    if (gateway != nullptr) rtnl_route_nh_set_gateway(hop, gateway);
    rtnl_route_add_nexthop(route.get(), hop);  // the route owns the hop from here
    return route;
}

}  // namespace tarnlinux::nl

// What the Linux platform owns on a host, for tarnnetd, the routing code and the IPv6 router
// alike (docs/linux-platform.md): nothing of theirs is named anywhere else.
#ifndef TARN_PLATFORM_LINUX_OWNED_H
#define TARN_PLATFORM_LINUX_OWNED_H

#include <cstdint>

namespace tarnlinux {

// Route protocols: every rule and route we make carries one of these.
inline constexpr uint8_t kProtoGateway = 201;  // tarnnetd: each family's default route in main
inline constexpr uint8_t kProtoPolicy = 202;   // PolicyRoute: our rules and our tables' routes
inline constexpr uint8_t kProtoStatic = 203;   // StaticRoute
inline constexpr uint8_t kProtoTunnel = 204;   // the IPv6 router's default route through a tunnel
struct RouteProtocol {
    uint8_t number;
    const char* name;
};
inline constexpr RouteProtocol kRouteProtocols[] = {
    {kProtoGateway, "tarn-gateway"},
    {kProtoPolicy, "tarn-policy"},
    {kProtoStatic, "tarn-static"},
    {kProtoTunnel, "tarn-tunnel"},
};

// Tables, rule priorities and the metric of tarnnetd's default route.
inline constexpr uint32_t kFirstTable = 20000;
inline constexpr uint32_t kLastTable = 20999;
inline constexpr uint32_t kSuppressPriority = 20000;
inline constexpr uint32_t kSourcePriority = 20100;
inline constexpr uint32_t kGatewayMetric = 50;
// tarnnetd's probes carry this mark; one rule per family sends them to the probe table, which
// holds one default route per tracked uplink (metric: its ifindex), so that a probe bound to an
// uplink leaves through that uplink's gateway whichever uplink has the main table's default.
inline constexpr uint32_t kProbeTable = 19999;
inline constexpr uint32_t kProbePriority = 20050;
inline constexpr uint32_t kProbeMark = 0x7461726e;

// Files and locks.
inline constexpr char kGatewayRecordsPath[] = "/etc/route-mgt/gateway_priority";
inline constexpr char kPolicyStatePath[] = "/etc/route-mgt/policy-route";
inline constexpr char kStaticRoutesPath[] = "/etc/route-mgt/static-routes";
inline constexpr char kRouter6StoreDir[] = "/etc/route-mgt/ipv6-router";
inline constexpr char kTableNamesPath[] = "/etc/iproute2/rt_tables.d/tarn.conf";
inline constexpr char kProtoNamesPath[] = "/etc/iproute2/rt_protos.d/tarn.conf";
inline constexpr char kPolicyLockPath[] = "/run/tarn/policy-route.lock";
inline constexpr char kStaticLockPath[] = "/run/tarn/static-route.lock";
inline constexpr char kRouter6LockPath[] = "/run/tarn/ipv6-router.lock";
// The router lock around a whole prefix application, taken before kRouter6LockPath.
inline constexpr char kRouterLockPath[] = "/tmp/lock/lock_ipv6_router";
// tarnnetd's reachability tracking: its configuration and the scripts run on every change.
inline constexpr char kTrackingPath[] = "/etc/route-mgt/tracking";
inline constexpr char kTrackingScriptsDir[] = "/etc/route-mgt/tracking.d";
// tarnnetd: an interface's disable_ipv6 value while it resets the interface's IPv6 module.
inline constexpr char kIPv6ResetDir[] = "/run/tarn/ipv6-reset";

// Makes kProtoNamesPath name all our protocols ("201 tarn-gateway" lines), whoever installs a
// route first; rewritten atomically, and only when its text differs. False with errno.
bool NameRouteProtocols();

}  // namespace tarnlinux

#endif

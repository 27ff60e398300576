// rtnetlink through libnl-route, for the Linux platform and tarnnetd: libnl's objects owned by
// smart pointers, and the calls that more than one part makes.
#ifndef TARN_PLATFORM_LINUX_NLOBJECTS_H
#define TARN_PLATFORM_LINUX_NLOBJECTS_H

#include <netlink/msg.h>
#include <netlink/netlink.h>
#include <netlink/route/addr.h>
#include <netlink/route/link.h>
#include <netlink/route/route.h>
#include <netlink/route/rule.h>
#include <netlink/socket.h>

#include <cstdint>
#include <functional>
#include <memory>

namespace tarnlinux::nl {

template <typename T, void (*Free)(T*)>
struct Deleter {
    void operator()(T* object) const { Free(object); }
};
using Socket = std::unique_ptr<nl_sock, Deleter<nl_sock, nl_socket_free>>;
using Cache = std::unique_ptr<nl_cache, Deleter<nl_cache, nl_cache_free>>;
using Callbacks = std::unique_ptr<nl_cb, Deleter<nl_cb, nl_cb_put>>;
using Message = std::unique_ptr<nl_msg, Deleter<nl_msg, nlmsg_free>>;
using Addr = std::unique_ptr<nl_addr, Deleter<nl_addr, nl_addr_put>>;
using Address = std::unique_ptr<rtnl_addr, Deleter<rtnl_addr, rtnl_addr_put>>;
using Link = std::unique_ptr<rtnl_link, Deleter<rtnl_link, rtnl_link_put>>;
using Route = std::unique_ptr<rtnl_route, Deleter<rtnl_route, rtnl_route_put>>;
using Rule = std::unique_ptr<rtnl_rule, Deleter<rtnl_rule, rtnl_rule_put>>;

// A socket connected to rtnetlink; null when there is none.
inline Socket Connect() {
    Socket sock(nl_socket_alloc());
    if (sock && nl_connect(sock.get(), NETLINK_ROUTE) < 0) sock.reset();
    return sock;
}

// A unicast default route of `family` and `protocol` in the main table out of `ifindex`, via
// `gateway` when there is one, with `metric` (0: the kernel's); null when it cannot be built.
Route DefaultRoute(int family, int ifindex, nl_addr* gateway, uint8_t protocol, uint32_t metric);

// Platform only: one dump of `type` for `family` over `sock` (its error callback kept), every
// object passed to `take`; asked again a few times when it changed while the kernel sent it, after
// `restart`. An exception from `take` is caught (none may cross libnl's C frames) and fails it.
bool Dump(nl_sock* sock, int type, int family, const std::function<void()>& restart, const std::function<void(nl_object*)>& take);

}  // namespace tarnlinux::nl

#endif

// rtnetlink through libnl-route for the Linux platform and tarnnetd: libnl's objects owned by
// smart pointers, and one session type through which every dump and every change goes, so that
// all callers retry interrupted dumps and report the kernel's refusals the same way.
#ifndef TARN_HOSTKIT_NETLINK_H
#define TARN_HOSTKIT_NETLINK_H

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
#include <string>

namespace tarnlinux::nl {

template <typename T, void (*Free)(T*)>
struct Deleter {
    void operator()(T* object) const { Free(object); }
};
using Socket = std::unique_ptr<nl_sock, Deleter<nl_sock, nl_socket_free>>;
using Callbacks = std::unique_ptr<nl_cb, Deleter<nl_cb, nl_cb_put>>;
using Message = std::unique_ptr<nl_msg, Deleter<nl_msg, nlmsg_free>>;
using Addr = std::unique_ptr<nl_addr, Deleter<nl_addr, nl_addr_put>>;
using Address = std::unique_ptr<rtnl_addr, Deleter<rtnl_addr, rtnl_addr_put>>;
using Link = std::unique_ptr<rtnl_link, Deleter<rtnl_link, rtnl_link_put>>;
using Route = std::unique_ptr<rtnl_route, Deleter<rtnl_route, rtnl_route_put>>;
using Rule = std::unique_ptr<rtnl_rule, Deleter<rtnl_rule, rtnl_rule_put>>;

// Which routes a dump asks for; 0 in a field matches any.
struct RouteFilter {
    uint32_t table = 0;
    uint8_t protocol = 0;
};

// One rtnetlink socket. libnl turns the kernel's errno into coarser codes of its own, so the
// session keeps the errno and the kernel's extended-ack text of the last refusal.
class Session {
public:
    Session();
    Session(const Session&) = delete;
    Session& operator=(const Session&) = delete;

    bool Ok() const { return sock_ != nullptr; }

    // One dump of `type` for `family`, every object passed to `take`; asked again a few times
    // when it changed while the kernel sent it, after `restart`. An exception from `take` is
    // caught (none may cross libnl's C frames) and fails the dump. False with Error() set.
    bool Dump(int type, int family, const std::function<void()>& restart, const std::function<void(nl_object*)>& take);

    // Dump of the routes of `family` that `filter` matches, as Dump. The kernel filters where it
    // can (strict dump checks); what an older kernel sends beyond the filter is dropped here. A
    // table that does not exist is an empty dump.
    bool DumpRoutes(int family, const RouteFilter& filter, const std::function<void()>& restart,
                    const std::function<void(nl_object*)>& take);

    // Sends a change that an rtnl_*_build_*_request made (`built` its result; `msg` is freed
    // here) and waits for the kernel's answer. False with Errno() and Error(), which reads
    // "<what>: <reason> (<the kernel's words>)".
    bool Change(nl_msg* msg, int built, const std::string& what);

    // The kernel's errno of the last refused change; 0 when it was refused before the kernel.
    int Errno() const { return errno_; }
    const std::string& Error() const { return error_; }

private:
    static int OnError(struct sockaddr_nl* peer, struct nlmsgerr* error, void* self);
    // The dump loop: `request` sends one dump request, once per attempt.
    bool Run(const std::function<int()>& request, const std::function<void()>& restart,
             const std::function<void(nl_object*)>& take);

    Socket sock_;
    int errno_ = 0;
    std::string reason_;  // the kernel's extended-ack text of the last refusal
    std::string error_;
};

// A unicast default route of `family` and `protocol` in the main table out of `ifindex`, via
// `gateway` when there is one, with `metric` (0: the kernel's); null when it cannot be built.
Route DefaultRoute(int family, int ifindex, nl_addr* gateway, uint8_t protocol, uint32_t metric);

}  // namespace tarnlinux::nl

#endif

#include "hostkit/netlink.h"

#include <linux/netlink.h>
#include <netlink/route/rtnl.h>
#include <sys/socket.h>

#include <cerrno>
#include <cstring>

namespace tarnlinux::nl {
namespace {

// A dump that changed under the kernel's hands is asked again a few times.
constexpr int kDumpAttempts = 3;

// What one dump attempt passes through libnl's C frames.
struct Attempt {
    const std::function<void(nl_object*)>* take;
    bool failed = false;
    int doneErrno = 0;  // the kernel's errno at the end of a dump that it cut short
};

void TakeObject(nl_object* object, void* arg) {
    auto* attempt = static_cast<Attempt*>(arg);
    try {
        (*attempt->take)(object);
    } catch (...) {
        attempt->failed = true;
    }
}

int OnMessage(nl_msg* msg, void* arg) {
    auto* attempt = static_cast<Attempt*>(arg);
    if (nl_msg_parse(msg, TakeObject, attempt) < 0) attempt->failed = true;
    return NL_OK;
}

// A dump that failed in the kernel still ends with NLMSG_DONE, its errno (negative) as payload,
// which libnl would take for success.
int OnDone(nl_msg* msg, void* arg) {
    nlmsghdr* header = nlmsg_hdr(msg);
    int error = 0;
    if (nlmsg_datalen(header) >= static_cast<int>(sizeof error)) std::memcpy(&error, nlmsg_data(header), sizeof error);
    static_cast<Attempt*>(arg)->doneErrno = -error;
    return NL_STOP;
}

// Asks for only the filter's routes, as iproute2 does; a kernel without strict dump checks reads
// the header as rtgenmsg and sends every route.
int SendRouteDump(nl_sock* sock, int family, const RouteFilter& filter) {
    rtmsg header{};
    header.rtm_family = static_cast<unsigned char>(family);
    header.rtm_protocol = filter.protocol;
    Message msg(nlmsg_alloc_simple(RTM_GETROUTE, NLM_F_DUMP));
    if (!msg || nlmsg_append(msg.get(), &header, sizeof header, NLMSG_ALIGNTO) < 0) return -NLE_NOMEM;
    if (filter.table != 0 && nla_put_u32(msg.get(), RTA_TABLE, filter.table) < 0) return -NLE_NOMEM;
    return nl_send_auto(sock, msg.get());
}

void SetStrictDumps(nl_sock* sock, int on) {
    setsockopt(nl_socket_get_fd(sock), SOL_NETLINK, NETLINK_GET_STRICT_CHK, &on, sizeof on);
}

// The text after the kernel's error: its extended-ack attributes follow the echoed request
// (only its header when the ack was capped).
std::string ExtAckText(const nlmsgerr* error) {
    const auto* header = reinterpret_cast<const nlmsghdr*>(reinterpret_cast<const char*>(error) - NLMSG_HDRLEN);
    if ((header->nlmsg_flags & NLM_F_ACK_TLVS) == 0) return "";
    size_t offset = NLMSG_HDRLEN + sizeof(nlmsgerr);
    if ((header->nlmsg_flags & NLM_F_CAPPED) == 0) offset += error->msg.nlmsg_len - NLMSG_HDRLEN;
    if (offset >= header->nlmsg_len) return "";
    nlattr* attrs[NLMSGERR_ATTR_MAX + 1] = {};
    auto* first = reinterpret_cast<nlattr*>(const_cast<char*>(reinterpret_cast<const char*>(header)) + offset);
    if (nla_parse(attrs, NLMSGERR_ATTR_MAX, first, static_cast<int>(header->nlmsg_len - offset), nullptr) < 0) return "";
    const nlattr* text = attrs[NLMSGERR_ATTR_MSG];
    if (text == nullptr) return "";
    const auto* chars = static_cast<const char*>(nla_data(text));
    return std::string(chars, strnlen(chars, nla_len(text)));
}

}  // namespace

Session::Session() {
    Socket sock(nl_socket_alloc());
    if (!sock || nl_connect(sock.get(), NETLINK_ROUTE) < 0) {
        error_ = "cannot open an rtnetlink socket";
        return;
    }
    int on = 1;
    setsockopt(nl_socket_get_fd(sock.get()), SOL_NETLINK, NETLINK_EXT_ACK, &on, sizeof on);
    setsockopt(nl_socket_get_fd(sock.get()), SOL_NETLINK, NETLINK_CAP_ACK, &on, sizeof on);
    nl_socket_modify_err_cb(sock.get(), NL_CB_CUSTOM, OnError, this);
    sock_ = std::move(sock);
}

int Session::OnError(sockaddr_nl*, nlmsgerr* error, void* self) {
    auto* session = static_cast<Session*>(self);
    session->errno_ = -error->error;
    try {
        session->reason_ = ExtAckText(error);
    } catch (...) {
        session->reason_.clear();
    }
    return NL_STOP;
}

bool Session::Dump(int type, int family, const std::function<void()>& restart, const std::function<void(nl_object*)>& take) {
    return Run([&] { return nl_rtgen_request(sock_.get(), type, family, NLM_F_DUMP); }, restart, take);
}

bool Session::DumpRoutes(int family, const RouteFilter& filter, const std::function<void()>& restart,
                         const std::function<void(nl_object*)>& take) {
    if (!sock_) return false;
    auto matching = [&](nl_object* object) {
        auto* route = reinterpret_cast<rtnl_route*>(object);
        if (filter.table != 0 && rtnl_route_get_table(route) != filter.table) return;
        if (filter.protocol != 0 && rtnl_route_get_protocol(route) != filter.protocol) return;
        take(object);
    };
    // The kernel reads the flag when a dump starts; other dumps of this session send rtgenmsg.
    SetStrictDumps(sock_.get(), 1);
    bool ok = Run([&] { return SendRouteDump(sock_.get(), family, filter); }, restart, matching);
    SetStrictDumps(sock_.get(), 0);
    if (ok || errno_ != ENOENT || filter.table == 0) return ok;
    restart();
    error_.clear();
    return true;
}

bool Session::Run(const std::function<int()>& request, const std::function<void()>& restart,
                  const std::function<void(nl_object*)>& take) {
    error_ = "cannot read the kernel's objects";
    if (!sock_) return false;
    for (int attempt = 0; attempt < kDumpAttempts; ++attempt) {
        restart();
        // A callback set of its own leaves the socket's error callback as it is.
        Callbacks base(nl_socket_get_cb(sock_.get()));
        Callbacks cb(base ? nl_cb_clone(base.get()) : nullptr);
        Attempt state{&take};
        if (!cb || nl_cb_set(cb.get(), NL_CB_VALID, NL_CB_CUSTOM, OnMessage, &state) < 0 ||
            nl_cb_set(cb.get(), NL_CB_FINISH, NL_CB_CUSTOM, OnDone, &state) < 0)
            return false;
        errno_ = 0;
        if (request() < 0) return false;
        int result = nl_recvmsgs(sock_.get(), cb.get());
        if (state.doneErrno != 0) errno_ = state.doneErrno;
        if (result >= 0 && !state.failed && errno_ == 0) {
            error_.clear();
            return true;
        }
        if (errno_ != 0) error_ += std::string(": ") + std::strerror(errno_);
        if (result != -NLE_DUMP_INTR) return false;
    }
    return false;
}

bool Session::Change(nl_msg* msg, int built, const std::string& what) {
    Message owned(msg);
    errno_ = 0;
    reason_.clear();
    error_.clear();
    if (built < 0 || !sock_) {
        error_ = what + ": " + (sock_ ? nl_geterror(built) : "no rtnetlink socket");
        return false;
    }
    int result = nl_send_sync(sock_.get(), owned.release());
    if (result >= 0) return true;
    error_ = what + ": " + (errno_ != 0 ? std::strerror(errno_) : nl_geterror(result));
    if (!reason_.empty()) error_ += " (" + reason_ + ")";
    return false;
}

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

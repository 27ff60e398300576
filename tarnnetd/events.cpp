#include "events.h"

#include "hostkit/log.h"

#include <linux/rtnetlink.h>
#include <syslog.h>

namespace tarnnetd {
namespace {

// Room for a burst of notifications, so that an overrun stays rare.
constexpr int kReceiveBufferBytes = 1 << 20;
constexpr uint64_t kSettleAccuracyUsec = 1000;

bool Fail(std::string& error, const char* reason) {
    error = reason;
    return false;
}

}  // namespace

bool LinkEvents::Attach(sd_event* event, std::string& error) {
    tarnlinux::nl::Socket sock(nl_socket_alloc());
    if (!sock) return Fail(error, "out of memory");
    nl_socket_disable_seq_check(sock.get());
    nl_socket_modify_cb(sock.get(), NL_CB_VALID, NL_CB_CUSTOM, OnMessage, this);
    if (nl_connect(sock.get(), NETLINK_ROUTE) < 0 ||
        nl_socket_add_memberships(sock.get(), RTNLGRP_LINK, RTNLGRP_IPV4_IFADDR, RTNLGRP_IPV6_IFADDR, 0) < 0 ||
        nl_socket_set_nonblocking(sock.get()) < 0 || nl_socket_set_buffer_size(sock.get(), kReceiveBufferBytes, 0) < 0)
        return Fail(error, "cannot listen to the kernel's link events");
    sd_event_source* io = nullptr;
    sd_event_source* settle = nullptr;
    if (sd_event_add_io(event, &io, nl_socket_get_fd(sock.get()), EPOLLIN, OnReadable, this) < 0)
        return Fail(error, "cannot watch link events");
    io_.reset(io);
    if (sd_event_add_time_relative(event, &settle, CLOCK_MONOTONIC, kSettleUsec, kSettleAccuracyUsec, OnSettled, this) < 0)
        return Fail(error, "cannot make the settle timer");
    settle_.reset(settle);
    sd_event_source_set_enabled(settle, SD_EVENT_OFF);
    sock_ = std::move(sock);
    return true;
}

int LinkEvents::OnReadable(sd_event_source*, int, uint32_t, void* self) {
    auto* events = static_cast<LinkEvents*>(self);
    int result = nl_recvmsgs_default(events->sock_.get());
    // An overrun (ENOBUFS, libnl's NLE_NOMEM) or any other loss: what was missed is read again.
    if (result < 0 && result != -NLE_AGAIN) {
        tarnlinux::Log(LOG_WARNING, "link-events",
                       std::string("notifications lost (") + nl_geterror(result) + "): reading everything again");
        events->Schedule();
    }
    return 0;
}

int LinkEvents::OnMessage(nl_msg* msg, void* self) {
    int type = nlmsg_hdr(msg)->nlmsg_type;
    if (type == RTM_NEWLINK || type == RTM_DELLINK || type == RTM_NEWADDR || type == RTM_DELADDR)
        static_cast<LinkEvents*>(self)->Schedule();
    return NL_OK;
}

// Armed only when idle: a steady stream of notifications still gets its answer every kSettleUsec.
void LinkEvents::Schedule() {
    int enabled = SD_EVENT_OFF;
    sd_event_source_get_enabled(settle_.get(), &enabled);
    if (enabled != SD_EVENT_OFF) return;
    sd_event_source_set_time_relative(settle_.get(), kSettleUsec);
    sd_event_source_set_enabled(settle_.get(), SD_EVENT_ONESHOT);
}

int LinkEvents::OnSettled(sd_event_source*, uint64_t, void* self) {
    static_cast<LinkEvents*>(self)->changed_();
    return 0;
}

}  // namespace tarnnetd

// The kernel's link and address notifications in the daemon's event loop, over a libnl-route
// socket. Bursts are coalesced: `changed` runs once, kSettleUsec after the first notification
// of a burst, and also after the kernel dropped notifications (ENOBUFS), since it then re-reads
// everything anyway.
#ifndef TARNNETD_EVENTS_H
#define TARNNETD_EVENTS_H

#include "tracker.h"

#include "hostkit/netlink.h"

#include <systemd/sd-event.h>

#include <functional>
#include <string>

namespace tarnnetd {

inline constexpr uint64_t kSettleUsec = 50'000;

class LinkEvents {
public:
    explicit LinkEvents(std::function<void()> changed) : changed_(std::move(changed)) {}
    // Subscribes and joins the loop; false with a reason.
    bool Attach(sd_event* event, std::string& error);

private:
    static int OnReadable(sd_event_source* source, int fd, uint32_t revents, void* self);
    static int OnMessage(nl_msg* msg, void* self);
    static int OnSettled(sd_event_source* source, uint64_t usec, void* self);
    void Schedule();

    std::function<void()> changed_;
    tarnlinux::nl::Socket sock_;
    EventSource io_;
    EventSource settle_;
};

}  // namespace tarnnetd

#endif

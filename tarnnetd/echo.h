// ICMP and ICMPv6 echo over one non-blocking raw socket per tracked uplink, sent by the daemon
// itself: no program is started per probe.
#ifndef TARNNETD_ECHO_H
#define TARNNETD_ECHO_H

#include "records.h"

#include "hostkit/fd.h"

#include <sys/socket.h>

#include <array>
#include <cstdint>
#include <string>

namespace tarnnetd {

// An address of either family as the socket calls take it.
struct Peer {
    sockaddr_storage addr{};
    socklen_t length = 0;
};
// `text` of the family, with `ifindex` as the scope of a link-local IPv6 address; false when
// it is not an address of the family.
bool ToPeer(Family family, const std::string& text, int ifindex, Peer& peer);
bool SameAddress(const Peer& a, const Peer& b);

class EchoSocket {
public:
    // Opens the uplink's socket: bound to `ifname` (SO_BINDTODEVICE) and to its address
    // `source`, marked for the probe table, passing echo replies only. False with a reason.
    bool Open(Family family, const std::string& ifname, int ifindex, const std::string& source, uint16_t id, std::string& error);
    void Close() { fd_.Reset(); }
    int Get() const { return fd_.Get(); }

    // One echo request; false with errno.
    bool Send(const Peer& target, uint16_t sequence);
    // The next waiting echo reply with our identifier: who sent it and its sequence number.
    // False when none is left.
    bool Receive(Peer& from, uint16_t& sequence);

private:
    tarnlinux::Fd fd_;
    Family family_ = Family::kV4;
    uint16_t id_ = 0;
};

}  // namespace tarnnetd

#endif

#include "echo.h"

#include "hostkit/owned.h"

#include <arpa/inet.h>
#include <linux/icmp.h>
#include <netinet/icmp6.h>
#include <netinet/in.h>
#include <netinet/ip.h>

#include <cerrno>
#include <cstring>

namespace tarnnetd {
namespace {

constexpr size_t kPayloadBytes = 16;
constexpr size_t kReceiveBytes = 1500;

// Both families' echo header: type, code, checksum, identifier, sequence.
struct EchoHeader {
    uint8_t type;
    uint8_t code;
    uint16_t checksum;
    uint16_t id;
    uint16_t sequence;
};

uint16_t Checksum(const uint8_t* bytes, size_t size) {
    uint32_t sum = 0;
    for (size_t i = 0; i + 1 < size; i += 2) sum += static_cast<uint32_t>(bytes[i] << 8 | bytes[i + 1]);
    if (size % 2 != 0) sum += static_cast<uint32_t>(bytes[size - 1] << 8);
    while (sum >> 16 != 0) sum = (sum & 0xffff) + (sum >> 16);
    return htons(static_cast<uint16_t>(~sum));
}

bool Fail(std::string& error, const std::string& what) {
    error = what + ": " + std::strerror(errno);
    return false;
}

// Only echo replies reach the socket; the kernel filters the rest.
bool PassRepliesOnly(int fd, Family family) {
    if (family == Family::kV4) {
        icmp_filter filter{~(1U << ICMP_ECHOREPLY)};
        return setsockopt(fd, SOL_RAW, ICMP_FILTER, &filter, sizeof filter) == 0;
    }
    icmp6_filter filter;
    ICMP6_FILTER_SETBLOCKALL(&filter);
    ICMP6_FILTER_SETPASS(ICMP6_ECHO_REPLY, &filter);
    return setsockopt(fd, IPPROTO_ICMPV6, ICMP6_FILTER, &filter, sizeof filter) == 0;
}

}  // namespace

bool ToPeer(Family family, const std::string& text, int ifindex, Peer& peer) {
    peer = Peer();
    if (family == Family::kV4) {
        auto* in = reinterpret_cast<sockaddr_in*>(&peer.addr);
        in->sin_family = AF_INET;
        peer.length = sizeof *in;
        return inet_pton(AF_INET, text.c_str(), &in->sin_addr) == 1;
    }
    auto* in6 = reinterpret_cast<sockaddr_in6*>(&peer.addr);
    in6->sin6_family = AF_INET6;
    peer.length = sizeof *in6;
    if (inet_pton(AF_INET6, text.c_str(), &in6->sin6_addr) != 1) return false;
    if (IN6_IS_ADDR_LINKLOCAL(&in6->sin6_addr)) in6->sin6_scope_id = static_cast<uint32_t>(ifindex);
    return true;
}

bool SameAddress(const Peer& a, const Peer& b) {
    if (a.addr.ss_family != b.addr.ss_family) return false;
    if (a.addr.ss_family == AF_INET)
        return reinterpret_cast<const sockaddr_in&>(a.addr).sin_addr.s_addr ==
               reinterpret_cast<const sockaddr_in&>(b.addr).sin_addr.s_addr;
    return IN6_ARE_ADDR_EQUAL(&reinterpret_cast<const sockaddr_in6&>(a.addr).sin6_addr,
                              &reinterpret_cast<const sockaddr_in6&>(b.addr).sin6_addr);
}

bool EchoSocket::Open(Family family, const std::string& ifname, int ifindex, const std::string& source, uint16_t id,
                      std::string& error) {
    Close();
    family_ = family;
    id_ = id;
    Peer local;
    if (!ToPeer(family, source, ifindex, local)) {
        error = "bad source address " + source;
        return false;
    }
    int domain = family == Family::kV4 ? AF_INET : AF_INET6;
    int protocol = family == Family::kV4 ? static_cast<int>(IPPROTO_ICMP) : static_cast<int>(IPPROTO_ICMPV6);
    tarnlinux::Fd fd(socket(domain, SOCK_RAW | SOCK_NONBLOCK | SOCK_CLOEXEC, protocol));
    uint32_t mark = tarnlinux::kProbeMark;
    if (fd.Get() < 0) return Fail(error, "cannot open an ICMP socket");
    if (!PassRepliesOnly(fd.Get(), family)) return Fail(error, "cannot filter ICMP");
    if (setsockopt(fd.Get(), SOL_SOCKET, SO_BINDTODEVICE, ifname.c_str(), static_cast<socklen_t>(ifname.size())) != 0)
        return Fail(error, "cannot bind to " + ifname);
    if (setsockopt(fd.Get(), SOL_SOCKET, SO_MARK, &mark, sizeof mark) != 0) return Fail(error, "cannot mark probes");
    if (bind(fd.Get(), reinterpret_cast<sockaddr*>(&local.addr), local.length) != 0)
        return Fail(error, "cannot bind to " + source);
    fd_.Reset(fd.Release());
    return true;
}

bool EchoSocket::Send(const Peer& target, uint16_t sequence) {
    uint8_t packet[sizeof(EchoHeader) + kPayloadBytes] = {};
    EchoHeader header{static_cast<uint8_t>(family_ == Family::kV4 ? ICMP_ECHO : ICMP6_ECHO_REQUEST), 0, 0, htons(id_),
                      htons(sequence)};
    std::memcpy(packet, &header, sizeof header);
    // The kernel sums ICMPv6 itself, over the pseudo-header it alone knows.
    if (family_ == Family::kV4) {
        uint16_t sum = Checksum(packet, sizeof packet);
        std::memcpy(packet + offsetof(EchoHeader, checksum), &sum, sizeof sum);
    }
    return sendto(fd_.Get(), packet, sizeof packet, 0, reinterpret_cast<const sockaddr*>(&target.addr), target.length) ==
           static_cast<ssize_t>(sizeof packet);
}

bool EchoSocket::Receive(Peer& from, uint16_t& sequence) {
    uint8_t buffer[kReceiveBytes];
    for (;;) {
        from = Peer();
        from.length = sizeof from.addr;
        ssize_t got = recvfrom(fd_.Get(), buffer, sizeof buffer, 0, reinterpret_cast<sockaddr*>(&from.addr), &from.length);
        if (got < 0) return false;
        // IPv4 raw sockets see the IP header first.
        size_t skip = family_ == Family::kV4 && got >= static_cast<ssize_t>(sizeof(iphdr)) ? (buffer[0] & 0x0f) * 4U : 0;
        if (static_cast<size_t>(got) < skip + sizeof(EchoHeader)) continue;
        EchoHeader header;
        std::memcpy(&header, buffer + skip, sizeof header);
        uint8_t reply = family_ == Family::kV4 ? ICMP_ECHOREPLY : ICMP6_ECHO_REPLY;
        if (header.type != reply || ntohs(header.id) != id_) continue;
        sequence = ntohs(header.sequence);
        return true;
    }
}

}  // namespace tarnnetd

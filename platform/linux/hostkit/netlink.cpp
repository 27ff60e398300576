// Address and link dumps over rtnetlink (libnl-route), kept in the kernel's order.
#include "hostkit/interfaces.h"

#include "hostkit/netlink.h"

#include <netlink/route/rtnl.h>

#include <cstring>
#include <memory>

namespace tarnlinux {
namespace {

// A dump that changed under the kernel's hands is asked again a few times.
constexpr int kDumpAttempts = 3;

// What one dump attempt passes through libnl's C frames.
struct Attempt {
    const std::function<void(nl_object*)>* take;
    bool failed = false;
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

void TakeAddress(nl_object* object, std::vector<InterfaceAddress>& out) {
    auto* addr = reinterpret_cast<rtnl_addr*>(object);
    nl_addr* local = rtnl_addr_get_local(addr);
    if (local == nullptr) return;
    InterfaceAddress address;
    address.family = rtnl_addr_get_family(addr);
    size_t length = nl_addr_get_len(local);
    if ((address.family != AF_INET || length != 4) && (address.family != AF_INET6 || length != 16)) return;
    std::memcpy(address.bytes.data(), nl_addr_get_binary_addr(local), length);
    address.ifindex = rtnl_addr_get_ifindex(addr);
    address.prefixlen = rtnl_addr_get_prefixlen(addr);
    address.scope = rtnl_addr_get_scope(addr);
    address.flags = rtnl_addr_get_flags(addr);
    if (const char* label = rtnl_addr_get_label(addr)) address.label = label;
    out.push_back(std::move(address));
}

void TakeLink(nl_object* object, std::vector<Link>& out) {
    auto* rlink = reinterpret_cast<rtnl_link*>(object);
    Link link;
    link.ifindex = rtnl_link_get_ifindex(rlink);
    if (nl_addr* hw = rtnl_link_get_addr(rlink)) {
        const auto* bytes = static_cast<const uint8_t*>(nl_addr_get_binary_addr(hw));
        link.hwaddr.assign(bytes, bytes + nl_addr_get_len(hw));
    }
    out.push_back(std::move(link));
}

// One dump on a socket of its own.
template <typename T>
bool DumpInto(int type, int family, void (*take)(nl_object*, std::vector<T>&), std::vector<T>& out) {
    nl::Socket sock = nl::Connect();
    auto restart = [&] { out.clear(); };
    auto each = [&](nl_object* object) { take(object, out); };
    return sock && nl::Dump(sock.get(), type, family, restart, each);
}

}  // namespace

bool DumpAddresses(int family, std::vector<InterfaceAddress>& out) { return DumpInto(RTM_GETADDR, family, TakeAddress, out); }

bool DumpLinks(std::vector<Link>& out) { return DumpInto(RTM_GETLINK, AF_UNSPEC, TakeLink, out); }

bool nl::Dump(nl_sock* sock, int type, int family, const std::function<void()>& restart,
              const std::function<void(nl_object*)>& take) {
    for (int attempt = 0; attempt < kDumpAttempts; ++attempt) {
        restart();
        // A callback set of its own leaves the socket's error callback as it is.
        nl::Callbacks base(nl_socket_get_cb(sock));
        nl::Callbacks cb(base ? nl_cb_clone(base.get()) : nullptr);
        Attempt state{&take};
        if (!cb || nl_cb_set(cb.get(), NL_CB_VALID, NL_CB_CUSTOM, OnMessage, &state) < 0) return false;
        if (nl_rtgen_request(sock, type, family, NLM_F_DUMP) < 0) return false;
        int result = nl_recvmsgs(sock, cb.get());
        if (result >= 0 && !state.failed) return true;
        if (result != -NLE_DUMP_INTR) return false;
    }
    return false;
}

}  // namespace tarnlinux

// Address and link dumps over rtnetlink (libnl-route), kept in the kernel's order.
#include "linux/linux.h"

#include <netlink/msg.h>
#include <netlink/netlink.h>
#include <netlink/route/addr.h>
#include <netlink/route/link.h>
#include <netlink/route/rtnl.h>
#include <netlink/socket.h>

#include <cstring>
#include <memory>

namespace tarnlinux {
namespace {

// A dump that changed under the kernel's hands is asked again a few times.
constexpr int kDumpAttempts = 3;

struct SocketFree {
    void operator()(nl_sock* sock) const { nl_socket_free(sock); }
};
using Socket = std::unique_ptr<nl_sock, SocketFree>;

// Where parsed objects go; `failed` records what could not be kept (no exception may cross
// libnl's C frames).
template <typename T>
struct Collector {
    std::vector<T>* out;
    bool failed = false;
};

void TakeAddress(nl_object* object, void* arg) {
    auto* collector = static_cast<Collector<InterfaceAddress>*>(arg);
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
    try {
        if (const char* label = rtnl_addr_get_label(addr)) address.label = label;
        collector->out->push_back(std::move(address));
    } catch (...) {
        collector->failed = true;
    }
}

void TakeLink(nl_object* object, void* arg) {
    auto* collector = static_cast<Collector<Link>*>(arg);
    auto* rlink = reinterpret_cast<rtnl_link*>(object);
    Link link;
    link.ifindex = rtnl_link_get_ifindex(rlink);
    try {
        if (nl_addr* hw = rtnl_link_get_addr(rlink)) {
            const auto* bytes = static_cast<const uint8_t*>(nl_addr_get_binary_addr(hw));
            link.hwaddr.assign(bytes, bytes + nl_addr_get_len(hw));
        }
        collector->out->push_back(std::move(link));
    } catch (...) {
        collector->failed = true;
    }
}

template <typename T>
struct Parse {
    void (*take)(nl_object*, void*);
    Collector<T>* collector;
};

template <typename T>
int OnMessage(nl_msg* msg, void* arg) {
    auto* parse = static_cast<Parse<T>*>(arg);
    if (nl_msg_parse(msg, parse->take, parse->collector) < 0) parse->collector->failed = true;
    return NL_OK;
}

// One dump request of `type` for `family`; every object goes through `take`.
template <typename T>
bool Dump(int type, int family, void (*take)(nl_object*, void*), std::vector<T>& out) {
    for (int attempt = 0; attempt < kDumpAttempts; ++attempt) {
        out.clear();
        Socket sock(nl_socket_alloc());
        if (!sock || nl_connect(sock.get(), NETLINK_ROUTE) < 0) return false;
        Collector<T> collector{&out};
        Parse<T> parse{take, &collector};
        if (nl_socket_modify_cb(sock.get(), NL_CB_VALID, NL_CB_CUSTOM, OnMessage<T>, &parse) < 0) return false;
        if (nl_rtgen_request(sock.get(), type, family, NLM_F_DUMP) < 0) return false;
        int result = nl_recvmsgs_default(sock.get());
        if (result >= 0) return !collector.failed;
        if (result != -NLE_DUMP_INTR) return false;
    }
    return false;
}

}  // namespace

bool DumpAddresses(int family, std::vector<InterfaceAddress>& out) { return Dump(RTM_GETADDR, family, TakeAddress, out); }

bool DumpLinks(std::vector<Link>& out) { return Dump(RTM_GETLINK, AF_UNSPEC, TakeLink, out); }

}  // namespace tarnlinux

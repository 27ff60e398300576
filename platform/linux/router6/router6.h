// Internals of the IPv6 router on Linux: the /64 arithmetic, the stored configurations (one
// document per interface) with their ownership rules, and the kernel calls the routers make.
// The pure parts are apart from the system calls so that they can be tested without root.
#ifndef TARN_PLATFORM_LINUX_ROUTER6_H
#define TARN_PLATFORM_LINUX_ROUTER6_H

#include "hostkit/ifname.h"
#include "hostkit/lock.h"

#include <netinet/in.h>
#include <sys/stat.h>

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

struct nl_msg;

namespace tarnlinux::router6 {

// At most this many /64 prefixes are listed: more than a device has consumers, and the
// enumeration of a /0 stays small and quick.
inline constexpr size_t kMaxPrefixes = 1024;

// The owner that has no interface of its own: only its record changes.
inline constexpr char kVpnOwner[] = "ovpn";

// An IPv6 prefix: the address with its host bits cleared, and its length.
struct Prefix {
    unsigned __int128 bits = 0;
    int length = 0;
};

// An IPv6 address text as a number; nullopt unless it is one.
std::optional<unsigned __int128> ParseAddress(const std::string& text);
// "address/length" (length 0-128) with the host bits cleared; nullopt unless it is one.
std::optional<Prefix> ParsePrefix(const std::string& text);
// The address text of a /64 prefix, such as "2001:db8::"; nullopt unless it is an IPv6
// address without host bits.
std::optional<unsigned __int128> Parse64(const std::string& text);
std::string AddressText(unsigned __int128 bits);
in6_addr ToIn6(unsigned __int128 bits);
bool Contains(const Prefix& outer, unsigned __int128 address);
// The /64 prefixes inside address/length, ascending, at most kMaxPrefixes; empty when the
// address is not IPv6 or the length is outside 0-64.
std::vector<std::string> Enum64(const std::string& address, int length);

// One consumer of an interface's prefix, and the /64 it holds ("" when none).
struct Consumer {
    std::string owner;
    std::string holds;
};

// Lifetimes of a delegation in seconds; kForever (DHCPv6's 0xffffffff) never runs out.
inline constexpr uint32_t kForever = 0xffffffff;
struct Lifetimes {
    uint32_t preferred = kForever;
    uint32_t valid = kForever;
};

// A point in time that no step of the wall clock moves: the boot and CLOCK_BOOTTIME's seconds.
struct Moment {
    std::string boot;
    int64_t seconds = 0;
};
Moment Now();

// The stored configuration of one interface.
struct Document {
    std::string type;                    // "native", "6in4" or "6to4"
    std::string prefix;                  // "address/length", "" before one is delegated
    std::string remote;                  // 6in4: the tunnel's remote IPv4 end
    std::string tunnelAddress;           // 6in4: the tunnel's own IPv6 address, "address/length"
    std::vector<Consumer> consumers;     // in the order prefixes are handed out; only ever appended to
    std::optional<Lifetimes> lifetimes;  // as delegated; none: the consumers' addresses are permanent
    Moment received;                     // when `lifetimes` were delegated
};

// What is left of the document's lifetimes at `now`; nothing of a delegation of another boot.
Lifetimes Remaining(const Document& document, const Moment& now);

// nullopt when the text is not a document of ours.
std::optional<Document> ParseDocument(const std::string& text);
std::string DocumentText(const Document& document);

// Every stored configuration, by interface name.
using Documents = std::map<std::string, Document>;

// Where an allocation is decided: the interface whose prefix application runs ("" outside one:
// the document with the longest prefix holding the /64), the /64 the owner released in that
// run, and the time.
struct Context {
    std::string run;
    std::string released;
    Moment now;
};

// What an allocation changed: the document that records it, and the /64 the owner held before
// ("" for none). `changed` is false when the owner holds the /64 already.
struct Allocation {
    std::string ifname;
    std::string dropped;
    bool changed = false;
};

// The ownership rules over the whole pool. On success the documents are changed and true is
// returned; otherwise `error` says why and nothing is changed.
bool AllocateIn(Documents& documents, const Context& context, const std::string& prefix, const std::string& owner,
                Allocation& allocation, std::string& error);
// `ifname` names the document changed ("" when nothing changed); with `run` given, only that
// interface's document is looked at.
bool DeallocateIn(Documents& documents, const std::string& run, const std::string& prefix, const std::string& owner,
                  std::string& ifname, std::string& error);
// Whether another live delegation overlaps `prefix`: its interface in `other`.
bool Overlaps(const Documents& documents, const std::string& ifname, const Prefix& prefix, const Moment& now, std::string& other);

// What becomes of a consumer's address <prefix>::1/64: made when missing (an address already
// there is left alone), its lifetimes renewed (made when missing), or removed.
enum class AddressOp { kEnsure, kRenew, kRemove };
// Changes the address on the owner's interface: true when done or when the owner has none.
using AddressHook =
    std::function<bool(const std::string& owner, const std::string& prefix, AddressOp op, const Lifetimes& lifetimes)>;

// The directory of documents and the lock that guards each read-change-write of it.
class Store {
public:
    Store(std::string dir, std::string lockPath, AddressHook hook, std::function<Moment()> clock = Now);

    // One interface's document; nullopt (logged) when missing or unreadable.
    std::optional<Document> Load(const std::string& ifname) const;

    // One interface's prefix application, from its LoadConfig to the end of its pool: a release
    // is only recorded, and the address goes when its owner then gets another /64 or none.
    void BeginRun(const std::string& ifname);
    void EndRun();
    bool Allocate(const std::string& prefix, const std::string& owner);
    bool Deallocate(const std::string& prefix, const std::string& owner);

    // Changes one interface's document (a new one when missing) under the lock; false, with
    // nothing written, when `change` refuses or the document cannot be read or written.
    bool Update(const std::string& ifname, const std::function<bool(Document&)>& change);

    // A delegation for an interface that has a document: the prefix and its lifetimes stored;
    // when the prefix is the stored one, the consumers' addresses of it get the new lifetimes.
    // False with `why` (one line) when refused.
    bool Delegate(const std::string& ifname, const Prefix& prefix, const Lifetimes& lifetimes, bool& changed, std::string& why);
    // The delegation ended: the consumers' addresses of it deprecated, gone when their valid
    // lifetime ends (at most kWithdrawnValid); who holds which /64 stays recorded.
    bool Withdraw(const std::string& ifname, std::string& why);

private:
    bool LoadAll(Documents& documents, const std::string& needed) const;
    bool Write(const std::string& ifname, const Document& document) const;
    bool List(const struct stat& version) const;
    bool LockForRun();
    bool Release(Documents& documents, const std::string& prefix, const std::string& owner);
    void RemoveStaleTemporaries() const;
    bool Existing(const std::string& ifname, Documents& documents, std::string& why) const;
    void Addresses(const Document& document, const Prefix& prefix, AddressOp op);

    // The documents last read or written by this process, with the file version they came from.
    struct Cached {
        struct stat version;
        std::optional<Document> document;  // none: the file is not a router document
    };

    std::string dir_;
    std::string lockPath_;
    AddressHook hook_;
    std::function<Moment()> clock_;
    struct Listing {
        struct stat version {};
        std::vector<std::string> names;
    };

    mutable std::map<std::string, Cached> cache_;
    mutable Listing listing_;
    mutable bool swept_ = false;
    // The run under way: its interface, each owner's released /64, and whether the pool was used.
    std::string run_;
    std::map<std::string, std::string> released_;
    bool used_ = false;
    std::unique_ptr<HeldLock> runLock_;
};

// A withdrawn delegation's addresses stay valid at most this long (RFC 7084, L-13).
inline constexpr uint32_t kWithdrawnValid = 7200;

// The product's store: kRouter6StoreDir, kRouter6LockPath, addresses through the kernel.
Store& SystemStore();

// The router library's component in the platform's log lines.
inline constexpr char kLog[] = "ipv6-router";

// The tunnel an interface's 6in4 or 6to4 router uses.
struct TunnelPlan {
    std::string name;
    uint32_t local = 0;   // network byte order
    uint32_t remote = 0;  // network byte order; 0 for any 6to4 relay
    int link = 0;         // the interface's index
};

// The RTM_NEWLINK request that makes the tunnel; nullptr when it cannot be built.
nl_msg* TunnelRequest(const TunnelPlan& plan);
// The 6to4 prefix 2002:WWXX:YYZZ::/48 of an IPv4 address (network byte order).
std::string SixToFourPrefix(uint32_t ipv4);

}  // namespace tarnlinux::router6

#endif

// The IPv6 router's stored configurations: one JSON document per interface, the pool's
// ownership rules over all of them, and each read-change-write under the store lock.
#include "hostkit/atomicfile.h"
#include "hostkit/fd.h"
#include "hostkit/json.h"
#include "hostkit/lock.h"
#include "hostkit/log.h"
#include "router6/router6.h"
#include "tarnnetwork.h"

#include <fcntl.h>
#include <json/json.h>
#include <sys/stat.h>
#include <syslog.h>

#include <time.h>

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <memory>

namespace tarnlinux::router6 {
namespace {

namespace fs = std::filesystem;

// A document is a few hundred bytes; anything far larger is not one of ours.
constexpr size_t kMaxDocumentSize = 1 << 20;
// A temporary file of a rewrite older than this was left by a kill: every rewrite runs under
// the store lock, which no holder keeps longer.
constexpr std::chrono::seconds kStaleTemporary = kLockWait;
constexpr char kBootIdPath[] = "/proc/sys/kernel/random/boot_id";
// Never a consumer: it has no link to advertise a prefix on.
constexpr char kLoopback[] = "lo";
constexpr int kSubnetLength = 64;

// Members of a document.
constexpr char kType[] = "type";
constexpr char kPrefix[] = "prefix";
constexpr char kRemote[] = "remote";
constexpr char kTunnelAddress[] = "tunnel_address";
constexpr char kConsumers[] = "consumers";
constexpr char kOwner[] = "owner";
constexpr char kHolds[] = "holds";
constexpr char kPreferred[] = "pltime";
constexpr char kValid[] = "vltime";
constexpr char kReceived[] = "received";
constexpr char kBoot[] = "boot_id";

bool OptionalString(const Json::Value& root, const char* name, std::string& out) {
    const Json::Value& value = root[name];
    if (value.isNull()) return true;
    if (!value.isString()) return false;
    out = value.asString();
    return true;
}

bool ParseConsumer(const Json::Value& entry, Consumer& consumer) {
    if (!entry.isObject() || !entry[kOwner].isString() || !OptionalString(entry, kHolds, consumer.holds)) return false;
    consumer.owner = entry[kOwner].asString();
    return !consumer.owner.empty() && (consumer.holds.empty() || Parse64(consumer.holds));
}

bool Seconds(const Json::Value& value, uint32_t& out) {
    if (!value.isUInt()) return false;
    out = value.asUInt();
    return true;
}

// All four members or none; a preferred lifetime never outlasts the valid one.
bool ParseLifetimes(const Json::Value& root, Document& document) {
    if (root[kPreferred].isNull() && root[kValid].isNull() && root[kReceived].isNull() && root[kBoot].isNull()) return true;
    Lifetimes lifetimes;
    if (!Seconds(root[kPreferred], lifetimes.preferred) || !Seconds(root[kValid], lifetimes.valid) ||
        lifetimes.preferred > lifetimes.valid || !root[kReceived].isInt64() || !root[kBoot].isString())
        return false;
    document.lifetimes = lifetimes;
    document.received = Moment{root[kBoot].asString(), root[kReceived].asInt64()};
    return true;
}

bool SameSubnet(const std::string& a, const std::string& b) {
    std::optional<unsigned __int128> x = Parse64(a);
    std::optional<unsigned __int128> y = Parse64(b);
    return x && y && *x == *y;
}

Consumer* FindOwner(Document& document, const std::string& owner) {
    for (Consumer& consumer : document.consumers)
        if (consumer.owner == owner) return &consumer;
    return nullptr;
}

// The document whose prefix contains the /64, the longest prefix winning; nullptr when none.
Document* Home(Documents& documents, unsigned __int128 subnet, std::string& ifname) {
    Document* home = nullptr;
    int best = -1;
    for (auto& [name, document] : documents) {
        std::optional<Prefix> prefix = ParsePrefix(document.prefix);
        if (!prefix || prefix->length > 64 || prefix->length <= best || !Contains(*prefix, subnet)) continue;
        home = &document;
        best = prefix->length;
        ifname = name;
    }
    return home;
}

// The run's document when it holds the /64; otherwise, outside a run, the longest prefix's.
Document* HomeIn(Documents& documents, const std::string& run, unsigned __int128 subnet, std::string& ifname) {
    if (run.empty()) return Home(documents, subnet, ifname);
    auto found = documents.find(run);
    std::optional<Prefix> prefix = found != documents.end() ? ParsePrefix(found->second.prefix) : std::nullopt;
    if (!prefix || prefix->length > 64 || !Contains(*prefix, subnet)) return nullptr;
    ifname = run;
    return &found->second;
}

// Consumers are interfaces (an upstream or the loopback never is one) or the VPN server.
bool ValidOwner(const Documents& documents, const std::string& owner, std::string& error) {
    if (owner == kVpnOwner) return true;
    if (!ValidIfname(owner) || owner == kLoopback) {
        error = "not an interface name";
        return false;
    }
    if (documents.count(owner) != 0) {
        error = "an upstream interface";
        return false;
    }
    return true;
}

// Who came first among overlapping delegations: a permanent one (no lifetimes), then by the
// time they were stored, then by name.
bool Earlier(const Document& a, const std::string& aName, const Document& b, const std::string& bName) {
    int64_t x = a.lifetimes ? a.received.seconds : -1, y = b.lifetimes ? b.received.seconds : -1;
    return x != y ? x < y : aName < bName;
}

bool OverlapsPrefix(const Prefix& a, const Prefix& b) { return a.length <= b.length ? Contains(a, b.bits) : Contains(b, a.bits); }

// An interface's name that no backup or temporary file has (wan0.bak, wan0~, .wan0.Ab12Cd): not
// hidden, no trailing "~", and after a dot only digits, as in VLAN names such as eth0.100.
bool DocumentName(const std::string& name) {
    size_t dot = name.rfind('.');
    bool vlan = dot == std::string::npos ||
                (dot + 1 < name.size() &&
                 std::all_of(name.begin() + dot + 1, name.end(), [](unsigned char c) { return std::isdigit(c); }));
    return ValidIfname(name) && name[0] != '.' && name.back() != '~' && vlan;
}

// A rewrite is a new file, so the same file, size and time mean the same text.
bool SameVersion(const struct stat& a, const struct stat& b) {
    return a.st_dev == b.st_dev && a.st_ino == b.st_ino && a.st_size == b.st_size && a.st_mtim.tv_sec == b.st_mtim.tv_sec &&
           a.st_mtim.tv_nsec == b.st_mtim.tv_nsec;
}

uint32_t Left(uint32_t lifetime, int64_t age) {
    if (lifetime == kForever) return kForever;
    return lifetime > age ? static_cast<uint32_t>(lifetime - age) : 0;
}

}  // namespace

Moment Now() {
    static const std::string boot = [] {
        std::string text;
        if (ReadRegular(kBootIdPath, text, kMaxDocumentSize) != ReadResult::kRead) text.clear();
        while (!text.empty() && text.back() == '\n') text.pop_back();
        return text;
    }();
    timespec boottime{};
    clock_gettime(CLOCK_BOOTTIME, &boottime);
    return Moment{boot, boottime.tv_sec};
}

Lifetimes Remaining(const Document& document, const Moment& now) {
    if (!document.lifetimes) return Lifetimes{};
    if (document.received.boot != now.boot) return Lifetimes{0, 0};
    int64_t age = std::max<int64_t>(0, now.seconds - document.received.seconds);
    return Lifetimes{Left(document.lifetimes->preferred, age), Left(document.lifetimes->valid, age)};
}

std::optional<Document> ParseDocument(const std::string& text) {
    Json::Value root;
    if (!ParseStrictJson(text, root) || !root.isObject()) return std::nullopt;
    Document document;
    if (!root[kType].isString()) return std::nullopt;
    document.type = root[kType].asString();
    if (!OptionalString(root, kPrefix, document.prefix) || !OptionalString(root, kRemote, document.remote) ||
        !OptionalString(root, kTunnelAddress, document.tunnelAddress) || !ParseLifetimes(root, document))
        return std::nullopt;
    if (!document.prefix.empty() && !ParsePrefix(document.prefix)) return std::nullopt;
    const Json::Value& consumers = root[kConsumers];
    if (!consumers.isNull() && !consumers.isArray()) return std::nullopt;
    for (const Json::Value& entry : consumers) {
        Consumer consumer;
        if (!ParseConsumer(entry, consumer) || FindOwner(document, consumer.owner) != nullptr) return std::nullopt;
        document.consumers.push_back(std::move(consumer));
    }
    return document;
}

std::string DocumentText(const Document& document) {
    Json::Value root(Json::objectValue);
    root[kType] = document.type;
    root[kPrefix] = document.prefix;
    if (!document.remote.empty()) root[kRemote] = document.remote;
    if (!document.tunnelAddress.empty()) root[kTunnelAddress] = document.tunnelAddress;
    if (document.lifetimes) {
        root[kPreferred] = document.lifetimes->preferred;
        root[kValid] = document.lifetimes->valid;
        root[kReceived] = static_cast<Json::Int64>(document.received.seconds);
        root[kBoot] = document.received.boot;
    }
    Json::Value& consumers = root[kConsumers] = Json::Value(Json::arrayValue);
    for (const Consumer& consumer : document.consumers) {
        Json::Value entry(Json::objectValue);
        entry[kOwner] = consumer.owner;
        entry[kHolds] = consumer.holds;
        consumers.append(entry);
    }
    Json::StreamWriterBuilder builder;
    builder["indentation"] = "  ";
    return Json::writeString(builder, root) + "\n";
}

bool Overlaps(const Documents& documents, const std::string& ifname, const Prefix& prefix, const Moment& now,
              std::string& other) {
    for (const auto& [name, document] : documents) {
        std::optional<Prefix> theirs = ParsePrefix(document.prefix);
        if (name == ifname || !theirs || Remaining(document, now).valid == 0 || !OverlapsPrefix(prefix, *theirs)) continue;
        other = name;
        return true;
    }
    return false;
}

namespace {

bool HeldByAnother(const Documents& documents, unsigned __int128 subnet, const std::string& owner, std::string& error) {
    for (const auto& [name, document] : documents)
        for (const Consumer& consumer : document.consumers)
            if (consumer.owner != owner && !consumer.holds.empty() && Parse64(consumer.holds) == subnet) {
                error = "held by " + consumer.owner + " of " + name;
                return true;
            }
    return false;
}

// Of two overlapping delegations only the earlier is handed out.
bool OverlapsEarlier(const Documents& documents, const std::string& ifname, const Moment& now, std::string& error) {
    const Document& own = documents.at(ifname);
    std::optional<Prefix> prefix = ParsePrefix(own.prefix);
    Documents earlier;
    for (const auto& [name, theirs] : documents)
        if (name != ifname && Earlier(theirs, name, own, ifname)) earlier.emplace(name, theirs);
    std::string other;
    if (!prefix || !Overlaps(earlier, ifname, *prefix, now, other)) return false;
    error = "the prefix of " + ifname + " overlaps the earlier one of " + other;
    return true;
}

}  // namespace

bool AllocateIn(Documents& documents, const Context& context, const std::string& prefix, const std::string& owner,
                Allocation& allocation, std::string& error) {
    std::optional<unsigned __int128> subnet = Parse64(prefix);
    if (!subnet) {
        error = "not a /64 prefix";
        return false;
    }
    if (!ValidOwner(documents, owner, error) || HeldByAnother(documents, *subnet, owner, error)) return false;
    Document* document = HomeIn(documents, context.run, *subnet, allocation.ifname);
    if (document == nullptr) {
        error = "in no configured prefix";
        return false;
    }
    if (OverlapsEarlier(documents, allocation.ifname, context.now, error)) return false;
    Consumer* consumer = FindOwner(*document, owner);
    if (consumer != nullptr && SameSubnet(consumer->holds, prefix)) return true;
    if (consumer != nullptr && !consumer->holds.empty() && !SameSubnet(consumer->holds, context.released)) {
        error = "the owner still holds " + consumer->holds;
        return false;
    }
    if (consumer == nullptr) consumer = &document->consumers.emplace_back(Consumer{owner, ""});
    allocation.dropped = consumer->holds;
    consumer->holds = AddressText(*subnet);
    allocation.changed = true;
    return true;
}

bool DeallocateIn(Documents& documents, const std::string& run, const std::string& prefix, const std::string& owner,
                  std::string& ifname, std::string& error) {
    ifname.clear();
    bool listed = false;
    for (auto& [name, document] : documents) {
        Consumer* consumer = FindOwner(document, owner);
        if (consumer == nullptr || (!run.empty() && name != run)) continue;
        listed = true;
        if (prefix.empty() ? !consumer->holds.empty() : !SameSubnet(consumer->holds, prefix)) continue;
        if (!prefix.empty()) ifname = name;
        consumer->holds.clear();
        return true;
    }
    // An owner that is listed nowhere holds nothing, so it may release nothing.
    if (prefix.empty() && !listed) return true;
    error = "not held by the owner";
    return false;
}

Store::Store(std::string dir, std::string lockPath, AddressHook hook, std::function<Moment()> clock)
    : dir_(std::move(dir)), lockPath_(std::move(lockPath)), hook_(std::move(hook)), clock_(std::move(clock)) {}

// Each prefix application reads every document twice per consumer: a document is read again
// only when lstat sees another version of its file (a rewrite is a new file).
std::optional<Document> Store::Load(const std::string& ifname) const {
    if (!ValidIfname(ifname)) {
        Logf(LOG_ERR, kLog, "no configuration for the interface name [%s]", ifname.c_str());
        return std::nullopt;
    }
    std::string path = dir_ + "/" + ifname, text;
    struct stat info;
    auto cached = cache_.find(ifname);
    if (cached != cache_.end() && lstat(path.c_str(), &info) == 0 && SameVersion(cached->second.version, info))
        return cached->second.document;
    Fd fd;
    if (!OpenRegular(path, fd, info, kMaxDocumentSize) || !ReadAll(fd.Get(), text, kMaxDocumentSize)) {
        Logf(errno == ENOENT ? LOG_INFO : LOG_ERR, kLog, "%s not readable: %s", path.c_str(), strerror(errno));
        return std::nullopt;
    }
    // A document that does not parse is logged once per version, not at every call of a run.
    std::optional<Document> document = ParseDocument(text);
    if (!document) Logf(LOG_ERR, kLog, "%s is not a router document", path.c_str());
    cache_[ifname] = Cached{info, document};
    return document;
}

// Every document named as an interface; one that cannot be read fails only when it is
// `needed` ("" for none), the others are left out (and logged by Load).
bool Store::LoadAll(Documents& documents, const std::string& needed) const {
    RemoveStaleTemporaries();
    struct stat version {};
    if (stat(dir_.c_str(), &version) != 0) {
        if (errno == ENOENT) return needed.empty();
        Logf(LOG_ERR, kLog, "%s not readable: %s", dir_.c_str(), strerror(errno));
        return false;
    }
    if (!SameVersion(listing_.version, version) && !List(version)) return false;
    for (const std::string& name : listing_.names) {
        std::optional<Document> document = Load(name);
        if (!document && name == needed) return false;
        if (document) documents.emplace(name, std::move(*document));
    }
    return needed.empty() || documents.count(needed) != 0;
}

// The names of the documents, kept with the directory's version they were listed from.
bool Store::List(const struct stat& version) const {
    std::error_code error;
    listing_ = Listing{};
    for (const fs::directory_entry& entry : fs::directory_iterator(dir_, error)) {
        std::string name = entry.path().filename();
        if (DocumentName(name) && entry.symlink_status(error).type() == fs::file_type::regular) listing_.names.push_back(name);
    }
    if (error) {
        Logf(LOG_ERR, kLog, "%s not readable: %s", dir_.c_str(), error.message().c_str());
        listing_ = Listing{};
        return false;
    }
    listing_.version = version;
    return true;
}

// Once per process, under the store lock, so that no rewrite of ours is under way.
void Store::RemoveStaleTemporaries() const {
    if (swept_) return;
    swept_ = true;
    tarnlinux::RemoveStaleTemporaries(dir_, ValidIfname, kStaleTemporary);
}

bool Store::Write(const std::string& ifname, const Document& document) const {
    std::string path = dir_ + "/" + ifname;
    if (!ReplaceFile(path, DocumentText(document))) {
        Logf(LOG_ERR, kLog, "%s not written: %s", path.c_str(), strerror(errno));
        return false;
    }
    struct stat info;
    if (lstat(path.c_str(), &info) == 0) cache_[ifname] = Cached{info, document};
    return true;
}

void Store::BeginRun(const std::string& ifname) {
    run_ = ifname;
    released_.clear();
    used_ = false;
    runLock_.reset();
}

// A run keeps the store lock from its first pool call to its end, under the router lock that
// its caller holds: one lock instead of one per call.
bool Store::LockForRun() {
    used_ = true;
    if (runLock_) return true;
    auto lock = std::make_unique<HeldLock>(lockPath_);
    if (!lock->Take()) return false;
    if (!run_.empty()) runLock_ = std::move(lock);
    return true;
}

// The owner gets none: its address goes first, then the record, so that a kill in between
// leaves a record that a rerun releases again, never an address that nobody owns.
bool Store::Release(Documents& documents, const std::string& prefix, const std::string& owner) {
    std::string ifname, error;
    if (!DeallocateIn(documents, run_, prefix, owner, ifname, error) || ifname.empty()) return true;
    // The same owner may hold the same /64 through another document written by hand.
    bool shared = false;
    for (auto& [name, document] : documents) {
        Consumer* consumer = FindOwner(document, owner);
        shared = shared || (consumer != nullptr && SameSubnet(consumer->holds, prefix));
    }
    if (!shared && !hook_(owner, prefix, AddressOp::kRemove, Lifetimes{})) {
        Logf(LOG_ERR, kLog, "cannot release [%s] of %s: address of the interface not removed", prefix.c_str(), owner.c_str());
        return false;
    }
    return Write(ifname, documents[ifname]);
}

// Owners that released their /64 and got nothing, and those past the end of a smaller prefix.
void Store::EndRun() {
    Documents documents;
    if (used_ && LockForRun() && LoadAll(documents, run_)) {
        std::optional<Prefix> prefix = ParsePrefix(documents[run_].prefix);
        for (const Consumer& consumer : Document(documents[run_]).consumers) {
            std::optional<unsigned __int128> subnet = Parse64(consumer.holds);
            bool outside = subnet && (!prefix || !Contains(*prefix, *subnet));
            if (outside || released_.count(consumer.owner) != 0) Release(documents, consumer.holds, consumer.owner);
        }
    }
    BeginRun("");
}

bool Store::Deallocate(const std::string& prefix, const std::string& owner) {
    Documents documents;
    std::string ifname, error;
    if (!LockForRun() || !LoadAll(documents, run_)) return false;
    if (owner != kVpnOwner && !ValidIfname(owner)) error = "not an interface name";
    if (!error.empty() || !DeallocateIn(documents, run_, prefix, owner, ifname, error)) {
        Logf(LOG_INFO, kLog, "cannot deallocate [%s] for %s: %s", prefix.c_str(), owner.c_str(), error.c_str());
        return false;
    }
    // Only recorded: the address stays while the owner gets the same /64 back.
    if (!ifname.empty()) released_[owner] = prefix;
    return true;
}

bool Store::Allocate(const std::string& prefix, const std::string& owner) {
    Documents documents;
    if (!LockForRun() || !LoadAll(documents, run_)) return false;
    Context context{run_, "", clock_()};
    auto released = released_.find(owner);
    if (released != released_.end()) context.released = released->second;
    released_.erase(owner);
    Allocation allocation;
    std::string error;
    if (!AllocateIn(documents, context, prefix, owner, allocation, error)) {
        Logf(LOG_INFO, kLog, "cannot allocate [%s] for %s: %s", prefix.c_str(), owner.c_str(), error.c_str());
        if (!context.released.empty()) Release(documents, context.released, owner);
        return false;
    }
    // The old address goes before the record changes and the new one comes after it: a kill
    // at any point leaves no address that the documents do not name.
    if (!allocation.dropped.empty() && !hook_(owner, allocation.dropped, AddressOp::kRemove, Lifetimes{})) {
        Logf(LOG_ERR, kLog, "cannot allocate [%s] for %s: [%s] not removed", prefix.c_str(), owner.c_str(),
             allocation.dropped.c_str());
        return false;
    }
    if (allocation.changed && !Write(allocation.ifname, documents[allocation.ifname])) return false;
    // The record is what the pool hands out; an address the kernel refuses now (the interface's
    // IPv6 off) is made by the next run, and the indexes do not move.
    Lifetimes left = Remaining(documents[allocation.ifname], context.now);
    if (left.valid != 0 && !hook_(owner, prefix, AddressOp::kEnsure, left))
        Logf(LOG_ERR, kLog, "[%s] of %s recorded, its address not added", prefix.c_str(), owner.c_str());
    return true;
}

bool Store::Update(const std::string& ifname, const std::function<bool(Document&)>& change) {
    if (!ValidIfname(ifname)) return false;
    HeldLock lock(lockPath_);
    if (!lock.Take()) {
        Logf(LOG_ERR, kLog, "store lock %s not taken", lockPath_.c_str());
        return false;
    }
    Document document;
    std::error_code error;
    if (fs::symlink_status(dir_ + "/" + ifname, error).type() != fs::file_type::not_found) {
        std::optional<Document> stored = Load(ifname);
        if (!stored) return false;
        document = std::move(*stored);
    }
    return change(document) && Write(ifname, document);
}

// The pool with the interface's own document in it; false with `why` when it has none.
bool Store::Existing(const std::string& ifname, Documents& documents, std::string& why) const {
    std::error_code error;
    if (!ValidIfname(ifname)) {
        why = "not an interface name: " + ifname;
        return false;
    }
    if (fs::symlink_status(dir_ + "/" + ifname, error).type() == fs::file_type::not_found) {
        why = "no router document for " + ifname + " in " + dir_;
        return false;
    }
    if (!LoadAll(documents, ifname)) {
        why = "the router document " + dir_ + "/" + ifname + " cannot be read";
        return false;
    }
    return true;
}

// The addresses of the consumers holding a /64 of `prefix` get the document's lifetimes left.
void Store::Addresses(const Document& document, const Prefix& prefix, AddressOp op) {
    Lifetimes left = Remaining(document, clock_());
    if (left.valid == 0) op = AddressOp::kRemove;
    for (const Consumer& consumer : document.consumers) {
        std::optional<unsigned __int128> subnet = Parse64(consumer.holds);
        if (subnet && Contains(prefix, *subnet) && !hook_(consumer.owner, consumer.holds, op, left))
            Logf(LOG_ERR, kLog, "lifetimes of [%s] of %s not renewed", consumer.holds.c_str(), consumer.owner.c_str());
    }
}

bool Store::Delegate(const std::string& ifname, const Prefix& prefix, const Lifetimes& lifetimes, bool& changed,
                     std::string& why) {
    HeldLock lock(lockPath_);
    Documents documents;
    if (!lock.Take()) {
        why = "the store lock " + lockPath_ + " cannot be taken";
        return false;
    }
    if (prefix.length > kSubnetLength || lifetimes.valid == 0 || lifetimes.preferred > lifetimes.valid) {
        why = "a prefix longer than /64, a valid lifetime of 0 or a preferred lifetime above the valid one";
        return false;
    }
    if (!Existing(ifname, documents, why)) return false;
    Moment now = clock_();
    std::string other, text = AddressText(prefix.bits) + "/" + std::to_string(prefix.length);
    if (Overlaps(documents, ifname, prefix, now, other)) {
        why = text + " for " + ifname + " overlaps the prefix of " + other;
        return false;
    }
    Document& document = documents[ifname];
    std::optional<Prefix> stored = ParsePrefix(document.prefix);
    changed = !stored || stored->bits != prefix.bits || stored->length != prefix.length;
    document.prefix = text;
    document.lifetimes = lifetimes;
    document.received = now;
    if (!Write(ifname, document)) {
        why = "the router document " + dir_ + "/" + ifname + " cannot be written";
        return false;
    }
    if (!changed) Addresses(document, prefix, AddressOp::kRenew);
    return true;
}

bool Store::Withdraw(const std::string& ifname, std::string& why) {
    HeldLock lock(lockPath_);
    Documents documents;
    if (!lock.Take()) {
        why = "the store lock " + lockPath_ + " cannot be taken";
        return false;
    }
    if (!Existing(ifname, documents, why)) return false;
    Document& document = documents[ifname];
    std::optional<Prefix> prefix = ParsePrefix(document.prefix);
    if (!prefix) return true;  // nothing delegated, nothing to withdraw
    Moment now = clock_();
    document.lifetimes = Lifetimes{0, std::min(Remaining(document, now).valid, kWithdrawnValid)};
    document.received = now;
    if (!Write(ifname, document)) {
        why = "the router document " + dir_ + "/" + ifname + " cannot be written";
        return false;
    }
    Addresses(document, *prefix, AddressOp::kRenew);
    return true;
}

}  // namespace tarnlinux::router6

namespace tarn::network::ipv6::router {

using tarnlinux::router6::SystemStore;

Router6Attr::Router6Attr() = default;
Router6Attr::~Router6Attr() = default;

// The prefix application of an interface starts with its configuration.
int Router6Attr::LoadConfig() {
    SystemStore().BeginRun(ifname);
    std::optional<tarnlinux::router6::Document> document = SystemStore().Load(ifname);
    if (!document) return -1;
    type = document->type;
    prefix = document->prefix;
    allocations.clear();
    for (const tarnlinux::router6::Consumer& consumer : document->consumers)
        allocations.emplace_back(consumer.holds, consumer.owner);
    return 0;
}

Router6Prefix::Router6Prefix() = default;
// ... and ends with its pool: owners left without a /64 lose their address.
Router6Prefix::~Router6Prefix() { SystemStore().EndRun(); }

bool Router6Prefix::Allocate(const std::string& prefix, const std::string& owner) {
    return SystemStore().Allocate(prefix, owner);
}

bool Router6Prefix::Deallocate(const std::string& prefix, const std::string& owner) {
    return SystemStore().Deallocate(prefix, owner);
}

}  // namespace tarn::network::ipv6::router

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

#include <algorithm>
#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <memory>

namespace tarnlinux::router6 {
namespace {

namespace fs = std::filesystem;

// A document is a few hundred bytes; anything far larger is not one of ours.
constexpr size_t kMaxDocumentSize = 1 << 20;

// Members of a document.
constexpr char kType[] = "type";
constexpr char kPrefix[] = "prefix";
constexpr char kRemote[] = "remote";
constexpr char kTunnelAddress[] = "tunnel_address";
constexpr char kConsumers[] = "consumers";
constexpr char kOwner[] = "owner";
constexpr char kHolds[] = "holds";

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

// A rewrite is a new file, so the same file, size and time mean the same text.
bool SameVersion(const struct stat& a, const struct stat& b) {
    return a.st_dev == b.st_dev && a.st_ino == b.st_ino && a.st_size == b.st_size && a.st_mtim.tv_sec == b.st_mtim.tv_sec &&
           a.st_mtim.tv_nsec == b.st_mtim.tv_nsec;
}

}  // namespace

std::optional<Document> ParseDocument(const std::string& text) {
    Json::Value root;
    if (!ParseStrictJson(text, root) || !root.isObject()) return std::nullopt;
    Document document;
    if (!root[kType].isString()) return std::nullopt;
    document.type = root[kType].asString();
    if (!OptionalString(root, kPrefix, document.prefix) || !OptionalString(root, kRemote, document.remote) ||
        !OptionalString(root, kTunnelAddress, document.tunnelAddress))
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

bool AllocateIn(Documents& documents, const std::string& prefix, const std::string& owner, std::string& ifname,
                std::string& error) {
    std::optional<unsigned __int128> subnet = Parse64(prefix);
    if (!subnet || owner.empty()) {
        error = "not a /64 prefix and an owner";
        return false;
    }
    for (const auto& [name, document] : documents)
        for (const Consumer& consumer : document.consumers)
            if (consumer.owner != owner && SameSubnet(consumer.holds, prefix)) {
                error = "held by " + consumer.owner + " of " + name;
                return false;
            }
    std::string home;
    Document* document = Home(documents, *subnet, home);
    if (document == nullptr) {
        error = "in no configured prefix";
        return false;
    }
    Consumer* consumer = FindOwner(*document, owner);
    if (consumer != nullptr && SameSubnet(consumer->holds, prefix)) {
        ifname.clear();
        return true;
    }
    if (consumer != nullptr && !consumer->holds.empty()) {
        error = "the owner still holds " + consumer->holds;
        return false;
    }
    if (consumer == nullptr) consumer = &document->consumers.emplace_back(Consumer{owner, ""});
    consumer->holds = AddressText(*subnet);
    ifname = home;
    return true;
}

bool DeallocateIn(Documents& documents, const std::string& prefix, const std::string& owner, std::string& ifname,
                  std::string& error) {
    ifname.clear();
    bool listed = false;
    for (auto& [name, document] : documents) {
        Consumer* consumer = FindOwner(document, owner);
        if (consumer == nullptr) continue;
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

Store::Store(std::string dir, std::string lockPath, AddressHook hook)
    : dir_(std::move(dir)), lockPath_(std::move(lockPath)), hook_(std::move(hook)) {}

std::optional<Document> Store::Load(const std::string& ifname) const {
    if (!ValidIfname(ifname)) {
        Logf(LOG_ERR, kLog, "no configuration for the interface name [%s]", ifname.c_str());
        return std::nullopt;
    }
    Fd fd;
    struct stat info;
    std::string text;
    if (!OpenRegular(dir_ + "/" + ifname, fd, info, kMaxDocumentSize) ||
        !ReadDocumentFileOrCached(ifname, fd.Get(), info, text)) {
        Logf(errno == ENOENT ? LOG_INFO : LOG_ERR, kLog, "configuration of %s not readable: %s", ifname.c_str(), strerror(errno));
        return std::nullopt;
    }
    if (text.empty()) return cache_[ifname].document;
    std::optional<Document> document = ParseDocument(text);
    if (!document) {
        Logf(LOG_ERR, kLog, "configuration of %s is not a router document", ifname.c_str());
        return std::nullopt;
    }
    cache_[ifname] = Cached{info, *document};
    return document;
}

// Leaves `text` empty when the cached document is this version of the file: each prefix
// application reads every document twice per consumer, and parsing them is most of its work.
bool Store::ReadDocumentFileOrCached(const std::string& ifname, int fd, const struct stat& info, std::string& text) const {
    auto cached = cache_.find(ifname);
    if (cached != cache_.end() && SameVersion(cached->second.version, info)) return true;
    errno = EINVAL;
    return ReadAll(fd, text, kMaxDocumentSize) && !text.empty();
}

bool Store::LoadAll(Documents& documents) const {
    std::error_code error;
    if (!fs::exists(dir_, error)) return true;
    for (const fs::directory_entry& entry : fs::directory_iterator(dir_, error)) {
        std::string name = entry.path().filename();
        // Temporary files of a rewrite start with a dot; other names cannot be interfaces, and
        // only a regular file is a document.
        if (name[0] == '.' || !ValidIfname(name) || entry.symlink_status(error).type() != fs::file_type::regular) continue;
        std::optional<Document> document = Load(name);
        if (!document) return false;
        documents.emplace(name, std::move(*document));
    }
    if (error) Logf(LOG_ERR, kLog, "%s not readable: %s", dir_.c_str(), error.message().c_str());
    return !error;
}

bool Store::Write(const std::string& ifname, const Document& document) const {
    std::string path = dir_ + "/" + ifname;
    if (!ReplaceFile(path, DocumentText(document))) {
        Logf(LOG_ERR, kLog, "configuration of %s not written: %s", ifname.c_str(), strerror(errno));
        return false;
    }
    struct stat info;
    if (stat(path.c_str(), &info) == 0) cache_[ifname] = Cached{info, document};
    return true;
}

bool Store::Change(const std::string& prefix, const std::string& owner, bool allocate) {
    const char* verb = allocate ? "allocate" : "deallocate";
    HeldLock lock(lockPath_);
    if (!lock.Take()) {
        Logf(LOG_ERR, kLog, "store lock %s not taken", lockPath_.c_str());
        return false;
    }
    Documents documents;
    if (!LoadAll(documents)) return false;
    std::string ifname;
    std::string error;
    bool ruled =
        allocate ? AllocateIn(documents, prefix, owner, ifname, error) : DeallocateIn(documents, prefix, owner, ifname, error);
    if (!ruled) {
        Logf(LOG_INFO, kLog, "cannot %s [%s] for %s: %s", verb, prefix.c_str(), owner.c_str(), error.c_str());
        return false;
    }
    // A release of nothing touches no interface; a repeated allocation makes sure of the address.
    if (!allocate && ifname.empty()) return true;
    if (!hook_(owner, prefix, allocate)) {
        Logf(LOG_ERR, kLog, "cannot %s [%s] for %s: address of the interface not changed", verb, prefix.c_str(), owner.c_str());
        return false;
    }
    if (ifname.empty() || Write(ifname, documents[ifname])) return true;
    hook_(owner, prefix, !allocate);
    return false;
}

bool Store::Allocate(const std::string& prefix, const std::string& owner) { return Change(prefix, owner, true); }

bool Store::Deallocate(const std::string& prefix, const std::string& owner) { return Change(prefix, owner, false); }

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

}  // namespace tarnlinux::router6

namespace tarn::network::ipv6::router {

using tarnlinux::router6::SystemStore;

Router6Attr::Router6Attr() = default;
Router6Attr::~Router6Attr() = default;

int Router6Attr::LoadConfig() {
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
Router6Prefix::~Router6Prefix() = default;

bool Router6Prefix::Allocate(const std::string& prefix, const std::string& owner) {
    return SystemStore().Allocate(prefix, owner);
}

bool Router6Prefix::Deallocate(const std::string& prefix, const std::string& owner) {
    return SystemStore().Deallocate(prefix, owner);
}

}  // namespace tarn::network::ipv6::router

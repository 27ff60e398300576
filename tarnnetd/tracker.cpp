#include "tracker.h"

#include "hostkit/log.h"

#include <syslog.h>
#include <unistd.h>

#include <algorithm>

namespace tarnnetd {
namespace {

constexpr size_t kRecentRounds = 50;
constexpr uint64_t kTimerAccuracyUsec = 1000;
constexpr const char* kComponent = "tracking";

uint64_t Now(sd_event* event) {
    uint64_t now = 0;
    sd_event_now(event, CLOCK_MONOTONIC, &now);
    return now;
}

std::unique_ptr<Uplink> Fresh(Family family, const std::string& ifname) {
    auto uplink = std::make_unique<Uplink>();
    uplink->family = family;
    uplink->ifname = ifname;
    uplink->since = std::time(nullptr);
    uplink->why = "not probed yet";
    return uplink;
}

std::string Plural(int count, const char* what) { return std::to_string(count) + " " + what + (count == 1 ? "" : "s"); }

}  // namespace

void Tracker::Configure(const std::optional<TrackConfig>& config) {
    config_ = config;
    if (!config_) uplinks_.clear();
    Arm();
}

void Tracker::Arm() {
    bool wanted = config_ && !config_->interfaces.empty();
    if (!wanted) {
        timer_.reset();
        return;
    }
    if (!timer_) {
        sd_event_source* source = nullptr;
        if (sd_event_add_time_relative(event_, &source, CLOCK_MONOTONIC, config_->intervalUsec, kTimerAccuracyUsec, OnTick,
                                       this) < 0) {
            tarnlinux::Log(LOG_ERR, kComponent, "cannot start the round timer");
            return;
        }
        timer_.reset(source);
    }
    sd_event_source_set_enabled(timer_.get(), SD_EVENT_ON);
}

void Tracker::Sync(const Records& records, const LinkStates& links) {
    static const std::map<std::string, UplinkConfig> kNone;
    const std::map<std::string, UplinkConfig>& configured = config_ ? config_->interfaces : kNone;
    std::map<Key, std::unique_ptr<Uplink>> next;
    for (Family family : {Family::kV4, Family::kV6}) {
        const FamilyRecords& of = records.Of(family);
        std::vector<DefaultRoute> routes;
        for (const auto& [ifname, record] : of.records) {
            auto config = configured.find(ifname);
            if (config == configured.end() || of.slaves.count(ifname) > 0) continue;
            Key key{family, ifname};
            std::unique_ptr<Uplink>& uplink = next[key];
            auto found = uplinks_.find(key);
            uplink = found != uplinks_.end() ? std::move(found->second) : Fresh(family, ifname);
            uplink->config = config->second;
            auto link = links.find(ifname);
            Follow(*uplink, link == links.end() ? nullptr : &link->second, record.gateway);
            if (uplink->link) routes.push_back(DefaultRoute{uplink->ifindex, ifname, record.gateway});
        }
        std::string error;
        if (!SetProbeRoutes(family, routes, error)) tarnlinux::Log(LOG_WARNING, kComponent, error);
    }
    uplinks_ = std::move(next);
}

// A new address, interface or gateway gives a new socket and new peers; a link that cannot
// carry a default route gets no probes, and its state waits as it is until the link is back.
void Tracker::Follow(Uplink& uplink, const LinkState* link, const std::string& gateway) {
    int family = static_cast<int>(uplink.family);
    bool usable = link != nullptr && Usable(*link, uplink.family);
    std::vector<std::string> targets = uplink.config.targets[family];
    if (targets.empty()) targets.push_back(gateway);
    int ifindex = link != nullptr ? link->ifindex : 0;
    std::string source = link != nullptr ? link->address[family] : "";
    bool same = usable == uplink.link && ifindex == uplink.ifindex && source == uplink.source && targets == uplink.targets &&
                gateway == uplink.gateway && uplink.socket.Get() >= 0;
    if (same) return;
    uplink.link = usable;
    uplink.ifindex = ifindex;
    uplink.source = source;
    uplink.gateway = gateway;
    uplink.targets = targets;
    uplink.peers.assign(targets.size(), Peer());
    for (size_t i = 0; i < targets.size(); ++i) ToPeer(uplink.family, targets[i], ifindex, uplink.peers[i]);
    uplink.io.reset();
    uplink.socket.Close();
    uplink.inFlight = false;
    if (!usable) return;
    std::string error;
    uint16_t id = static_cast<uint16_t>((getpid() << 8) + ++nextId_);
    if (!uplink.socket.Open(uplink.family, uplink.ifname, ifindex, source, id, error)) {
        tarnlinux::Log(LOG_WARNING, kComponent, uplink.ifname + ": " + error);
        return;
    }
    sd_event_source* io = nullptr;
    if (sd_event_add_io(event_, &io, uplink.socket.Get(), EPOLLIN, OnReadable, &uplink) < 0) {
        uplink.socket.Close();
        return;
    }
    uplink.io.reset(io);
}

int Tracker::Tier(Family family, const std::string& ifname) const {
    auto found = uplinks_.find(Key{family, ifname});
    if (found == uplinks_.end()) return 0;
    Reach reach = found->second->progress.reach;
    return reach == Reach::kOnline ? 0 : reach == Reach::kUnknown ? 1 : 2;
}

int Tracker::OnTick(sd_event_source* source, uint64_t usec, void* self) {
    auto* tracker = static_cast<Tracker*>(self);
    sd_event_source_set_time(source, usec + tracker->config_->intervalUsec);
    bool changed = false;
    for (auto& entry : tracker->uplinks_) {
        if (entry.second->inFlight) changed |= tracker->EndRound(*entry.second);
        tracker->StartRound(*entry.second, usec);
    }
    if (changed) tracker->reroute_();
    return 0;
}

void Tracker::StartRound(Uplink& uplink, uint64_t now) {
    if (!uplink.link || uplink.socket.Get() < 0) return;
    ++uplink.sequence;
    uplink.rttUsec.assign(uplink.peers.size(), -1);
    uplink.sentUsec = now;
    uplink.inFlight = true;
    // An echo that cannot be sent is one not answered.
    for (const Peer& peer : uplink.peers) uplink.socket.Send(peer, uplink.sequence);
}

bool Tracker::EndRound(Uplink& uplink) {
    uplink.inFlight = false;
    int answered = 0;
    int64_t total = 0;
    for (int64_t rtt : uplink.rttUsec) {
        if (rtt < 0 || static_cast<uint64_t>(rtt) > config_->timeoutUsec) continue;
        ++answered;
        total += rtt;
    }
    int targets = static_cast<int>(uplink.rttUsec.size());
    uplink.lastAnswered = answered;
    uplink.lastRttUsec = answered > 0 ? total / answered : -1;
    uplink.recent.emplace_back(targets, answered);
    if (uplink.recent.size() > kRecentRounds) uplink.recent.pop_front();
    bool good = answered >= std::min(uplink.config.reliability, targets);
    Reach previous = uplink.progress.reach;
    if (!CountRound(uplink.progress, good, uplink.config.rules)) return false;
    int run = good ? uplink.progress.good : uplink.progress.bad;
    uplink.since = std::time(nullptr);
    uplink.why = Plural(run, good ? "good round" : "bad round") + ", " + std::to_string(answered) + " of " +
                 Plural(targets, "target") + " answered";
    changed_(uplink, previous);
    return true;
}

int Tracker::OnReadable(sd_event_source* source, int, uint32_t, void* self) {
    auto* uplink = static_cast<Uplink*>(self);
    uint64_t now = Now(sd_event_source_get_event(source));
    Peer from;
    uint16_t sequence = 0;
    while (uplink->socket.Receive(from, sequence)) {
        if (!uplink->inFlight || sequence != uplink->sequence) continue;
        for (size_t i = 0; i < uplink->peers.size(); ++i)
            if (uplink->rttUsec[i] < 0 && SameAddress(uplink->peers[i], from)) {
                uplink->rttUsec[i] = static_cast<int64_t>(now - uplink->sentUsec);
                break;
            }
    }
    return 0;
}

Json::Value Tracker::Describe() const {
    Json::Value list(Json::arrayValue);
    for (const auto& entry : uplinks_) {
        const Uplink& uplink = *entry.second;
        int sent = 0;
        int answered = 0;
        for (const auto& round : uplink.recent) {
            sent += round.first;
            answered += round.second;
        }
        Json::Value item;
        item["ifname"] = uplink.ifname;
        item["type"] = FamilyName(uplink.family);
        item["link"] = uplink.link ? "up" : "down";
        item["state"] = ReachName(uplink.progress.reach);
        item["since"] = static_cast<Json::Int64>(uplink.since);
        item["reason"] = uplink.why;
        item["targets"] = static_cast<int>(uplink.targets.size());
        item["answered"] = uplink.lastAnswered < 0 ? Json::Value() : Json::Value(uplink.lastAnswered);
        item["rtt_ms"] = uplink.lastRttUsec < 0 ? Json::Value() : Json::Value(static_cast<double>(uplink.lastRttUsec) / 1000.0);
        item["loss_percent"] = sent == 0 ? Json::Value() : Json::Value(100.0 * (sent - answered) / sent);
        list.append(item);
    }
    return list;
}

}  // namespace tarnnetd

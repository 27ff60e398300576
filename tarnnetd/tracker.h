// Reachability tracking: rounds of echo from every tracked uplink, on one timer in the daemon's
// event loop, each uplink's state made from its rounds (rounds.h).
#ifndef TARNNETD_TRACKER_H
#define TARNNETD_TRACKER_H

#include "echo.h"
#include "kernel.h"
#include "records.h"
#include "rounds.h"
#include "trackconfig.h"

#include <json/value.h>
#include <systemd/sd-event.h>

#include <ctime>
#include <deque>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace tarnnetd {

struct SourceUnref {
    void operator()(sd_event_source* source) const { sd_event_source_disable_unref(source); }
};
using EventSource = std::unique_ptr<sd_event_source, SourceUnref>;

struct Uplink {
    Family family = Family::kV4;
    std::string ifname;
    UplinkConfig config;
    std::vector<std::string> targets;  // the configured ones of the family, else the gateway
    std::vector<Peer> peers;
    std::string gateway;
    int ifindex = 0;
    std::string source;  // the interface's address the probes leave from
    bool link = false;   // usable for a default route (kernel.h)
    Progress progress;
    std::time_t since = 0;
    std::string why;  // the reason of the last change of state

    EchoSocket socket;
    EventSource io;
    uint16_t sequence = 0;
    bool inFlight = false;
    uint64_t sentUsec = 0;
    std::vector<int64_t> rttUsec;  // of the round in flight, per target; -1: no answer yet
    int lastAnswered = -1;
    int64_t lastRttUsec = -1;                // mean of the last round's answers
    std::deque<std::pair<int, int>> recent;  // echoes sent and answered, per recent round
};

class Tracker {
public:
    // `changed` hears every change of an uplink's state; `reroute` runs once after a round that
    // changed any.
    using Changed = std::function<void(const Uplink&, Reach previous)>;
    Tracker(sd_event* event, Changed changed, std::function<void()> reroute)
        : event_(event), changed_(std::move(changed)), reroute_(std::move(reroute)) {}

    // A new configuration (nullopt: none). Uplinks that stay tracked keep their state.
    void Configure(const std::optional<TrackConfig>& config);
    const std::optional<TrackConfig>& Config() const { return config_; }
    // Follows the records and the links: uplinks made and dropped, sockets opened where a link
    // has an address, the probe table's routes. Logs what fails.
    void Sync(const Records& records, const LinkStates& links);
    // 0 online or not tracked, 1 not known yet, 2 offline: candidates are tried in this order.
    int Tier(Family family, const std::string& ifname) const;
    Json::Value Describe() const;

private:
    using Key = std::pair<Family, std::string>;
    static int OnTick(sd_event_source* source, uint64_t usec, void* self);
    static int OnReadable(sd_event_source* source, int fd, uint32_t revents, void* self);
    bool EndRound(Uplink& uplink);
    void StartRound(Uplink& uplink, uint64_t now);
    void Follow(Uplink& uplink, const LinkState* link, const std::string& gateway);
    void Arm();

    sd_event* event_;
    Changed changed_;
    std::function<void()> reroute_;
    std::optional<TrackConfig> config_;
    std::map<Key, std::unique_ptr<Uplink>> uplinks_;
    EventSource timer_;
    uint16_t nextId_ = 0;
};

}  // namespace tarnnetd

#endif

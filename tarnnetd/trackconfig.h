// The tracking file: which uplinks are probed, to which targets, and by which rules.
#ifndef TARNNETD_TRACKCONFIG_H
#define TARNNETD_TRACKCONFIG_H

#include "records.h"
#include "rounds.h"

#include <json/value.h>

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <vector>

namespace tarnnetd {

// One tracked interface. Its records of either family are probed, each with the targets of its
// family, or with the record's gateway when none is listed.
struct UplinkConfig {
    std::vector<std::string> targets[2];  // by Family
    int reliability = 1;                  // targets that must answer for a good round
    Rules rules{7, 10};
};

// The defaults fail over within (down + 1) x interval = 3.2 s of the fault. A round fails only
// when every target's echo or its answer is lost: with one target at 10 % loss each way (19 %
// per echo), 7 bad rounds in a row happen with 0.19^7, about 1e-5 per round, once in some 12
// hours of rounds at 2.5 a second; with 3 targets, never in practice.
struct TrackConfig {
    uint64_t intervalUsec = 400'000;  // one round per interval, for every uplink at once
    uint64_t timeoutUsec = 400'000;   // an answer later than this does not count
    uint64_t scriptTimeoutUsec = 10'000'000;
    std::map<std::string, UplinkConfig> interfaces;  // by interface name
};

// Reads the file at `path`. A missing file gives no configuration (nullopt): no probes. False,
// with "<path>: <place>: <reason>" in `error`, when it does not parse or names a bad value.
bool LoadTrackConfig(const std::string& path, std::optional<TrackConfig>& config, std::string& error);
bool ParseTrackConfig(const Json::Value& document, TrackConfig& config, std::string& error);

}  // namespace tarnnetd

#endif

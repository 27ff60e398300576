#include "trackconfig.h"

#include "hostkit/atomicfile.h"
#include "hostkit/json.h"

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <cstdio>
#include <cstring>

namespace tarnnetd {
namespace {

constexpr size_t kMaxFileBytes = 64 * 1024;
constexpr int kMaxRounds = 1000;
constexpr int kMaxTargets = 16;
constexpr double kMinIntervalSeconds = 0.1;
constexpr double kMaxIntervalSeconds = 60;
constexpr double kMinTimeoutSeconds = 0.01;
constexpr double kMaxScriptSeconds = 600;

bool Fail(std::string& error, const std::string& place, const std::string& reason) {
    error = place + ": " + reason;
    return false;
}

std::string Decimal(double value) {
    char text[32];
    std::snprintf(text, sizeof text, "%g", value);
    return text;
}

// A member in seconds, from `low` to `high`, kept when absent.
bool Seconds(const Json::Value& object, const std::string& place, const char* name, double low, double high, uint64_t& usec,
             std::string& error) {
    const Json::Value& value = object[name];
    if (value.isNull()) return true;
    if (!value.isNumeric() || !std::isfinite(value.asDouble()) || value.asDouble() < low || value.asDouble() > high)
        return Fail(error, place + name, "must be a number of seconds from " + Decimal(low) + " to " + Decimal(high));
    usec = static_cast<uint64_t>(std::llround(value.asDouble() * 1e6));
    return true;
}

bool Count(const Json::Value& object, const std::string& place, const char* name, int high, int& count, std::string& error) {
    const Json::Value& value = object[name];
    if (value.isNull()) return true;
    if (!value.isIntegral() || value.asLargestInt() < 1 || value.asLargestInt() > high)
        return Fail(error, place + name, "must be a whole number from 1 to " + std::to_string(high));
    count = static_cast<int>(value.asInt());
    return true;
}

bool OnlyMembers(const Json::Value& object, const std::string& place, std::initializer_list<const char*> known,
                 std::string& error) {
    if (!object.isObject())
        return Fail(error, place.empty() ? "the document" : place.substr(0, place.size() - 1), "must be an object");
    for (const std::string& name : object.getMemberNames()) {
        bool found = false;
        for (const char* member : known) found |= name == member;
        if (!found) return Fail(error, place + name, "unknown member");
    }
    return true;
}

bool Targets(const Json::Value& list, const std::string& place, UplinkConfig& uplink, std::string& error) {
    if (list.isNull()) return true;
    if (!list.isArray() || list.size() > kMaxTargets)
        return Fail(error, place, "must be an array of at most " + std::to_string(kMaxTargets) + " addresses");
    for (Json::ArrayIndex i = 0; i < list.size(); ++i) {
        std::string text = list[i].isString() ? list[i].asString() : "";
        bool v4 = ValidAddress(Family::kV4, text);
        if (!v4 && !ValidAddress(Family::kV6, text))
            return Fail(error, place + "[" + std::to_string(i) + "]", "must be an IPv4 or IPv6 address");
        uplink.targets[static_cast<int>(v4 ? Family::kV4 : Family::kV6)].push_back(text);
    }
    return true;
}

// The rules common to all interfaces, taken first, are each interface's defaults.
bool Uplink(const Json::Value& object, const std::string& place, UplinkConfig& uplink, std::string& error) {
    return OnlyMembers(object, place, {"targets", "reliability", "down", "up"}, error) &&
           Targets(object["targets"], place + "targets", uplink, error) &&
           Count(object, place, "reliability", kMaxTargets, uplink.reliability, error) &&
           Count(object, place, "down", kMaxRounds, uplink.rules.down, error) &&
           Count(object, place, "up", kMaxRounds, uplink.rules.up, error);
}

}  // namespace

bool ParseTrackConfig(const Json::Value& document, TrackConfig& config, std::string& error) {
    UplinkConfig defaults;
    if (!OnlyMembers(document, "", {"interval", "timeout", "script_timeout", "reliability", "down", "up", "interfaces"}, error) ||
        !Seconds(document, "", "interval", kMinIntervalSeconds, kMaxIntervalSeconds, config.intervalUsec, error) ||
        !Seconds(document, "", "timeout", kMinTimeoutSeconds, kMaxIntervalSeconds, config.timeoutUsec, error) ||
        !Seconds(document, "", "script_timeout", kMinTimeoutSeconds, kMaxScriptSeconds, config.scriptTimeoutUsec, error) ||
        !Count(document, "", "reliability", kMaxTargets, defaults.reliability, error) ||
        !Count(document, "", "down", kMaxRounds, defaults.rules.down, error) ||
        !Count(document, "", "up", kMaxRounds, defaults.rules.up, error))
        return false;
    // Without a timeout of its own, a shorter interval bounds the answers' wait.
    if (!document.isMember("timeout")) config.timeoutUsec = std::min(config.timeoutUsec, config.intervalUsec);
    if (config.timeoutUsec > config.intervalUsec) return Fail(error, "timeout", "must not be longer than interval");
    const Json::Value& interfaces = document["interfaces"];
    if (!interfaces.isNull() && !interfaces.isObject()) return Fail(error, "interfaces", "must be an object");
    for (const std::string& name : interfaces.getMemberNames()) {
        std::string place = "interfaces." + name + ".";
        if (!ValidIfname(name)) return Fail(error, "interfaces." + name, "not an interface name");
        UplinkConfig uplink = defaults;
        if (!Uplink(interfaces[name], place, uplink, error)) return false;
        config.interfaces[name] = uplink;
    }
    return true;
}

bool LoadTrackConfig(const std::string& path, std::optional<TrackConfig>& config, std::string& error) {
    std::string text;
    tarnlinux::ReadResult read = tarnlinux::ReadRegular(path, text, kMaxFileBytes);
    config.reset();
    if (read == tarnlinux::ReadResult::kMissing) return true;
    if (read == tarnlinux::ReadResult::kRefused) return Fail(error, path, std::strerror(errno));
    Json::Value document;
    std::string why;
    if (!tarnlinux::ParseStrictJson(text, document, &why)) return Fail(error, path, why);
    TrackConfig parsed;
    if (!ParseTrackConfig(document, parsed, error)) return Fail(error, path, error);
    config = parsed;
    return true;
}

}  // namespace tarnnetd

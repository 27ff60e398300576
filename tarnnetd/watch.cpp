#include "watch.h"

#include "hostkit/bus.h"
#include "hostkit/log.h"

#include <json/writer.h>
#include <syslog.h>

namespace tarnnetd {
namespace {

constexpr char kScriptPath[] = "PATH=/usr/local/sbin:/usr/local/bin:/usr/sbin:/usr/bin:/sbin:/bin";

std::string Compact(const Json::Value& value) {
    Json::StreamWriterBuilder builder;
    builder["indentation"] = "";
    return Json::writeString(builder, value);
}

}  // namespace

Watch::Watch(sd_event* event, Service& service, std::string configPath, std::string scriptsDir)
    : event_(event),
      service_(service),
      configPath_(std::move(configPath)),
      scriptsDir_(std::move(scriptsDir)),
      tracker_(
          event, [this](const Uplink& uplink, Reach previous) { OnChange(uplink, previous); }, [this] { service_.RefreshAll(); }),
      events_([this] { Follow(); }),
      scripts_(event) {
    Service::Hooks hooks;
    hooks.tier = [this](Family family, const std::string& ifname) { return tracker_.Tier(family, ifname); };
    hooks.recordsChanged = [this] { Follow(); };
    hooks.describe = [this] { return tracker_.Describe(); };
    service_.SetHooks(hooks);
}

bool Watch::Load(std::string& error) {
    std::optional<TrackConfig> config;
    if (!LoadTrackConfig(configPath_, config, error)) return false;
    tracker_.Configure(config);
    return true;
}

bool Watch::Start(sd_bus* bus, std::string& error) {
    bus_ = bus;
    if (!events_.Attach(event_, error)) return false;
    Follow();
    return true;
}

void Watch::Reload() {
    std::optional<TrackConfig> config;
    std::string error;
    if (!LoadTrackConfig(configPath_, config, error)) {
        tarnlinux::Log(LOG_ERR, "tracking", error + "; the previous configuration stays");
        return;
    }
    tracker_.Configure(config);
    tarnlinux::Log(LOG_INFO, "tracking", config ? "configuration read again" : "no configuration: link events only");
    Follow();
}

void Watch::Follow() {
    LinkStates links;
    if (!ReadLinks(links))
        tarnlinux::Log(LOG_WARNING, "tracking", "cannot read the interfaces");
    else
        tracker_.Sync(service_.Current(), links);
    service_.RefreshAll();
}

// One log line, one signal and the scripts, per change of an uplink's state.
void Watch::OnChange(const Uplink& uplink, Reach previous) {
    std::string name = uplink.ifname + (uplink.family == Family::kV6 ? " IPv6" : "");
    syslog(LOG_NOTICE, "%s: %s (%s)", name.c_str(), ReachName(uplink.progress.reach), uplink.why.c_str());
    Json::Value change;
    change["ifname"] = uplink.ifname;
    change["type"] = FamilyName(uplink.family);
    change["state"] = ReachName(uplink.progress.reach);
    change["previous"] = ReachName(previous);
    change["reason"] = uplink.why;
    if (bus_ != nullptr)
        sd_bus_emit_signal(bus_, tarnbus::kPath, tarnbus::kInterface, tarnbus::kUplinkChanged, "s", Compact(change).c_str());
    std::vector<std::string> env{
        kScriptPath, "TARN_INTERFACE=" + uplink.ifname, std::string("TARN_FAMILY=") + FamilyName(uplink.family),
        std::string("TARN_STATE=") + ReachName(uplink.progress.reach), std::string("TARN_PREVIOUS_STATE=") + ReachName(previous)};
    scripts_.RunAll(scriptsDir_, env, tracker_.Config() ? tracker_.Config()->scriptTimeoutUsec : 0);
}

}  // namespace tarnnetd

// What moves the default route with no call: the kernel's link events, reachability tracking,
// its file (read at start and on SIGHUP) and the scripts run on every change of state.
#ifndef TARNNETD_WATCH_H
#define TARNNETD_WATCH_H

#include "events.h"
#include "scripts.h"
#include "service.h"
#include "tracker.h"

#include <systemd/sd-bus.h>
#include <systemd/sd-event.h>

#include <string>

namespace tarnnetd {

class Watch {
public:
    Watch(sd_event* event, Service& service, std::string configPath, std::string scriptsDir);
    // Reads the tracking file; false with "<path>: <place>: <reason>".
    bool Load(std::string& error);
    // Listens to the kernel and starts tracking; `bus` hears every change of state.
    bool Start(sd_bus* bus, std::string& error);
    // SIGHUP: a file that cannot be used leaves configuration and state as they were.
    void Reload();
    // Links or records changed: the tracker follows, then the default routes.
    void Follow();

private:
    void OnChange(const Uplink& uplink, Reach previous);

    sd_event* event_;
    Service& service_;
    std::string configPath_;
    std::string scriptsDir_;
    sd_bus* bus_ = nullptr;
    Tracker tracker_;
    LinkEvents events_;
    ScriptRunner scripts_;
};

}  // namespace tarnnetd

#endif

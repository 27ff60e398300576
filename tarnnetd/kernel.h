// What tarnnetd changes in the kernel: the main table's default route that carries our route
// protocol, and an interface's IPv6 module. Over rtnetlink and /proc only.
#ifndef TARNNETD_KERNEL_H
#define TARNNETD_KERNEL_H

#include "records.h"

#include <map>
#include <string>
#include <vector>

namespace tarnnetd {

// An interface as the choice of the default route sees it.
struct LinkState {
    int ifindex = 0;
    bool adminUp = false;    // IFF_UP
    bool running = false;    // IFF_RUNNING: carrier, and an operational state that lets traffic through
    std::string address[2];  // one own address per family (by Family), "" when none
};
using LinkStates = std::map<std::string, LinkState>;  // by interface name

// Every interface and its addresses; false when the kernel could not be asked.
bool ReadLinks(LinkStates& out);
// Whether a default route of `family` may leave through `link`: up, running, with an address of
// the family.
bool Usable(const LinkState& link, Family family);

struct DefaultRoute {
    int ifindex;
    std::string ifname;
    std::string gateway;
};

// Makes the first of `candidates` that the kernel accepts the family's one default route of our
// protocol in the main table; with none, removes ours. The new route is in place before the
// old one goes: replaced in one step where ours is the only default at our metric, else added
// beside it. Routes of other protocols are left alone. False with the reasons when the kernel
// refused every candidate; ours is then left as it was.
bool SetDefaultRoute(Family family, const std::vector<DefaultRoute>& candidates, std::string& error);

// Makes the probe table hold one default route per uplink of `uplinks` (metric: its ifindex)
// and no other of ours, with the rule that leads marked probes there while there is any.
// False with a reason.
bool SetProbeRoutes(Family family, const std::vector<DefaultRoute>& uplinks, std::string& error);

// disable_ipv6 of the interface to 1 and back to its value, so that the kernel drops and
// re-learns the interface's IPv6 addresses. False with a reason (also for an unknown interface).
bool ResetIPv6(const std::string& ifname, std::string& error);
// Restores what resets cut short by a kill had not restored yet.
void FinishIPv6Resets();

}  // namespace tarnnetd

#endif

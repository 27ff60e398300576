// What tarnnetd changes in the kernel: the main table's default route that carries our route
// protocol, and an interface's IPv6 module. Over rtnetlink and /proc only.
#ifndef TARNNETD_KERNEL_H
#define TARNNETD_KERNEL_H

#include "records.h"

#include <optional>
#include <string>

namespace tarnnetd {

// The interface's index when it exists and is administratively up.
std::optional<int> UpInterface(const std::string& ifname);

struct DefaultRoute {
    int ifindex;
    std::string gateway;
};

// Makes `route` the family's one default route of our protocol in the main table, or removes
// ours when there is none; routes of other protocols are left alone. False with a reason.
bool SetDefaultRoute(Family family, const std::optional<DefaultRoute>& route, std::string& error);

// disable_ipv6 of the interface to 1 and back to its value, so that the kernel drops and
// re-learns the interface's IPv6 addresses. False with a reason (also for an unknown interface).
bool ResetIPv6(const std::string& ifname, std::string& error);
// Restores what resets cut short by a kill had not restored yet.
void FinishIPv6Resets();

}  // namespace tarnnetd

#endif

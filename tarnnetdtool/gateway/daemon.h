// What the gateway actions share in front of the network daemon: the family member of a
// request, the bounded wait for the daemon, and the shape checks of its replies.
#ifndef TARNNETDTOOL_GATEWAY_DAEMON_H
#define TARNNETDTOOL_GATEWAY_DAEMON_H

#include "tarnnetwork.h"

#include <vector>

// Sets request "type" from an address-family argument; complains "arg1 error: need a type"
// and returns false when the argument is neither.
bool SetType(Json::Value& request, const char* arg);

// Asks the daemon up to 6 times, a second apart, whether it is ready; the caller sends its
// request afterwards whatever the answer.
void WaitUntilReady(const tarnnetwork::dbus::NetClient& client);

// True when `entry` is an object whose members `texts` (absent ones included) read as text.
bool IsGatewayEntry(const Json::Value& entry, const std::vector<const char*>& texts);

// True when `list` is null (no gateways) or an array of entries as IsGatewayEntry demands.
bool IsGatewayList(const Json::Value& list, const std::vector<const char*>& texts);

#endif

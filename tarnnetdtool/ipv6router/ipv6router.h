// IPv6 router actions: prefix application, router initialisation, router queries.
#ifndef TARNNETDTOOL_IPV6ROUTER_IPV6ROUTER_H
#define TARNNETDTOOL_IPV6ROUTER_IPV6ROUTER_H

#include <set>
#include <string>

#include "tarnnetwork.h"

int ApplyNewPrefix(int argc, char** argv);
int InitIPv6Router(int argc, char** argv);
int GetIPv6RouterInterface(int argc, char** argv);
int GetInternalNetwork(int argc, char** argv);

// Hands the /64 prefixes of the interface's prefix to its consumers; the caller holds the
// router lock. 0 when the walk ran, -1 when nothing could be done.
int ApplyPrefixOnInterface(const std::string& ifname);

// Serialises prefix redistribution between processes of --apply-new-prefix and --init-ipv6-router.
inline constexpr char kRouterLockPath[] = "/tmp/lock/lock_ipv6_router";

// ApplyPrefixOnInterface, logging its failure against `ifname`; 0 or -1.
int ApplyPrefixOrLog(const char* ifname);

// Adds "network/length" of every network that `query` gives for lbr0, then gbr0, to `set`.
void CollectInternalNetworks(std::set<std::string>& set, tarnnetwork::utils::AddressList (*query)(const std::string&));

#endif

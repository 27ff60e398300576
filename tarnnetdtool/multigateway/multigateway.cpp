#include "multigateway/multigateway.h"

#include "conventions.h"
#include "multigateway/alias.h"

#include <iostream>
#include <optional>
#include <string>

using multigateway::AddressLookup;
using tarnnetwork::dbus::NetClient;
using tarnnetwork::network::IP_TYPE;
using tarnnetwork::network::IPV4;
using tarnnetwork::network::IPV6;
using tarnnetwork::network::PolicyRoute;
using tarnnetwork::network::PolicyRouteRule;
using tarnnetwork::utils::AddressList;
using tarnnetwork::utils::IPAddress;

namespace {

constexpr char kService[] = "multi-gateway";
constexpr char kWanClass[] = "wan";
constexpr char kNullAddress[] = "NULL";
constexpr char kListFailed[] = "Failed to GetGatewayListData";
constexpr int kAliasListSize = 1024;

// Switching multi-gateway routing on and off differ only in the rule step.
enum class RuleStep { kAdd, kDelete };

struct WanEntry {
    std::string ifname;
    std::string gateway;  // read only when the rule is added
};

// Asks at once, without waiting for the daemon to report ready.
bool GetGatewayList(NetClient& client, IP_TYPE family, Json::Value& list) {
    Json::Value request;
    request["type"] = GatewayType(family);
    if (client.GetGatewayListData(request, list) >= 0) return true;
    std::cerr << kListFailed << std::endl;
    return false;
}

// A reply that is neither a list nor null (no gateways at all) is as good as a failed request.
bool KeepWanEntries(Json::Value& list) {
    tarnnetwork::network::FilterList(kWanClass, list);
    if (list.isNull() || list.isArray()) return true;
    std::cerr << kListFailed << std::endl;
    return false;
}

bool ReadText(const Json::Value& entry, const char* name, std::string& text) {
    if (!entry.isObject() || !entry[name].isString()) return false;
    text = entry[name].asString();
    return !text.empty();
}

// One entry without what its rule step needs is skipped, so that it cannot hold up the others.
std::optional<WanEntry> ReadWanEntry(const Json::Value& entry, Json::ArrayIndex index, RuleStep step) {
    WanEntry wan;
    const char* missing = nullptr;
    if (!ReadText(entry, "ifname", wan.ifname)) {
        missing = "ifname";
    } else if (step == RuleStep::kAdd && !ReadText(entry, "gateway", wan.gateway)) {
        missing = "gateway";
    }
    if (missing == nullptr) return wan;
    TOOL_LOG(LOG_WARNING, "Skip WAN entry %u without a usable %s", index, missing);
    return std::nullopt;
}

PolicyRouteRule MultiGatewayRule(IP_TYPE family, const WanEntry& wan) {
    PolicyRouteRule rule;
    rule.type = family;
    rule.service = kService;
    rule.interface = wan.ifname;
    rule.ip = std::string(kNullAddress);
    // An IPv4 rule carries a netmask, an IPv6 rule a prefix length; the other stays unset.
    if (family == IPV4) {
        rule.mask = std::string(kNullAddress);
    } else {
        rule.prefix_length = kNullAddress;
    }
    rule.gateway = wan.gateway;
    return rule;
}

bool ApplyRule(PolicyRoute& route, IP_TYPE family, RuleStep step, const WanEntry& wan) {
    int result =
        step == RuleStep::kAdd ? route.AddRule(MultiGatewayRule(family, wan)) : route.DeleteRule(family, kService, wan.ifname);
    if (result >= 0) return true;
    // Deleting reports with the same words as adding.
    std::cerr << "Failed to add policy route rule for " << wan.ifname << std::endl;
    TOOL_LOG(LOG_ERR, "Failed to add policy route rule for %s-table", wan.ifname.c_str());
    return false;
}

bool DisableWanTable(PolicyRoute& route, IP_TYPE family, const std::string& ifname) {
    if (route.DisableTable(family, ifname) >= 0) return true;
    std::cerr << "Failed to disable route table for " << ifname << std::endl;
    TOOL_LOG(LOG_ERR, "Failed to disable route table for [%s]", ifname.c_str());
    return false;
}

bool EnableWanTable(PolicyRoute& route, IP_TYPE family, const std::string& ifname, const std::string& source) {
    if (route.EnableTable(family, ifname, source) >= 0) return true;
    std::cerr << "Failed to enable route table for " << ifname << std::endl;
    TOOL_LOG(LOG_ERR, "Failed to enable route table for [%s]", ifname.c_str());
    return false;
}

// Visits the usable WAN entries in list order; the first failure ends the run and leaves the
// entries before it switched.
template <typename SwitchOne>
int ForEachWan(const Json::Value& list, RuleStep step, SwitchOne switchOne) {
    for (Json::ArrayIndex i = 0; i < list.size(); ++i) {
        std::optional<WanEntry> wan = ReadWanEntry(list[i], i, step);
        if (wan && !switchOne(*wan)) return kFail;
    }
    return kOk;
}

// The address is read before anything changes. An interface without one keeps its table off,
// since the table's old source must not stay.
bool SwitchWanV4(PolicyRoute& route, RuleStep step, const WanEntry& wan, char* line, multigateway::SzList& aliases) {
    AddressLookup lookup = multigateway::GetIfconfigAddress(wan.ifname, line);
    if (lookup == AddressLookup::kFailed) return false;
    if (!ApplyRule(route, IPV4, step, wan) || !DisableWanTable(route, IPV4, wan.ifname)) return false;
    if (lookup == AddressLookup::kNoAddress) return true;
    if (!EnableWanTable(route, IPV4, wan.ifname, multigateway::BuildTableSource(wan.ifname, line, aliases))) return false;
    // The SDK may add to what the list holds, and no source may carry another interface's aliases.
    TLIBCSzListRemoveAll(aliases.get());
    return true;
}

int SwitchMultiGatewayV4(RuleStep step) {
    NetClient client;
    PolicyRoute route;
    Json::Value list;
    char line[multigateway::kLineSize] = {};
    if (!GetGatewayList(client, IPV4, list)) return kFail;
    multigateway::SzList aliases(kAliasListSize);
    if (!aliases) {
        TOOL_LOG(LOG_ERR, "Failed to allocate memory for multi-gateway of IP aliases.");
        return kFail;
    }
    if (!KeepWanEntries(list)) return kFail;
    return ForEachWan(list, step, [&](const WanEntry& wan) { return SwitchWanV4(route, step, wan, line, aliases); });
}

std::string JoinAddresses(const AddressList& addresses) {
    std::string source;
    for (const auto& address : addresses) source += (source.empty() ? "" : ",") + address.first;
    return source;
}

// The addresses are asked for once the table is off; without any, the table stays off.
bool SwitchWanV6(PolicyRoute& route, RuleStep step, const WanEntry& wan) {
    if (!ApplyRule(route, IPV6, step, wan) || !DisableWanTable(route, IPV6, wan.ifname)) return false;
    AddressList addresses = IPAddress::GetIPv6Address(wan.ifname);
    if (addresses.empty()) return true;
    return EnableWanTable(route, IPV6, wan.ifname, JoinAddresses(addresses));
}

int SwitchMultiGatewayV6(RuleStep step) {
    NetClient client;
    PolicyRoute route;
    Json::Value list;
    if (!GetGatewayList(client, IPV6, list) || !KeepWanEntries(list)) return kFail;
    return ForEachWan(list, step, [&](const WanEntry& wan) { return SwitchWanV6(route, step, wan); });
}

}  // namespace

int EnableMultiGateway(int, char**) { return SwitchMultiGatewayV4(RuleStep::kAdd); }
int DisableMultiGateway(int, char**) { return SwitchMultiGatewayV4(RuleStep::kDelete); }
int EnableMultiGatewayV6(int, char**) { return SwitchMultiGatewayV6(RuleStep::kAdd); }
int DisableMultiGatewayV6(int, char**) { return SwitchMultiGatewayV6(RuleStep::kDelete); }

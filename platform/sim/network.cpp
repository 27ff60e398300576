// Simulated network library: daemon client, routing managers, address queries.
#include "corestr.h"
#include "sim.h"
#include "tarnnetwork.h"

namespace tarnnetwork {
namespace dbus {
namespace {

std::string TextMember(const Json::Value& request, const char* key) {
    const Json::Value& value = sim::Member(request, key);
    return value.isString() ? value.asString() : "";
}

// The scenario's gateway list of the request's family as it stands (explicit null included),
// an empty array when absent.
Json::Value GatewaysOf(const Json::Value& request) {
    const Json::Value& gateways = sim::Scenario("gateways");
    std::string family = TextMember(request, "type");
    return gateways.isMember(family) ? gateways[family] : Json::Value(Json::arrayValue);
}

Json::Value GatewayEntryOf(const Json::Value& request) {
    std::string name = TextMember(request, "ifname");
    const Json::Value& byFamily = sim::Member(sim::Scenario("gateway_data"), TextMember(request, "type"));
    if (byFamily.isMember(name)) return byFamily[name];
    Json::Value list = GatewaysOf(request);
    if (list.isArray()) {
        for (const Json::Value& entry : list) {
            const Json::Value& entryName = sim::Member(entry, "ifname");
            if (entryName.isString() && entryName.asString() == name) return entry;
        }
    }
    return Json::Value(Json::objectValue);
}

}  // namespace

NetClient::NetClient() { sim::Record("NetClient.NetClient"); }
NetClient::~NetClient() { sim::Record("NetClient.~NetClient"); }

bool NetClient::IsServerReady() const { return sim::BoolAnswer("NetClient.IsServerReady", Json::Value(), true); }

int NetClient::GetGatewayListData(Json::Value& request, Json::Value& response) {
    Json::Value args = sim::Args(request, Json::Value());
    int result = sim::IntResult("NetClient.GetGatewayListData", 0);
    if (result >= 0) response = GatewaysOf(request);
    sim::Record("NetClient.GetGatewayListData", args, result);
    return result;
}

int NetClient::GetGatewayDataByInterface(Json::Value& request, Json::Value& response) {
    Json::Value args = sim::Args(request, Json::Value());
    int result = sim::IntResult("NetClient.GetGatewayDataByInterface", 0);
    if (result >= 0) response = GatewayEntryOf(request);
    sim::Record("NetClient.GetGatewayDataByInterface", args, result);
    return result;
}

int NetClient::AddGatewayData(Json::Value& request) { return sim::IntAnswer("NetClient.AddGatewayData", sim::Args(request), 0); }
int NetClient::DelGatewayData(Json::Value& request) { return sim::IntAnswer("NetClient.DelGatewayData", sim::Args(request), 0); }
int NetClient::CopyGatewayData(Json::Value& request) {
    return sim::IntAnswer("NetClient.CopyGatewayData", sim::Args(request), 0);
}
int NetClient::RefreshGateway(Json::Value& request) { return sim::IntAnswer("NetClient.RefreshGateway", sim::Args(request), 0); }
int NetClient::SetSlaveData(Json::Value& request) { return sim::IntAnswer("NetClient.SetSlaveData", sim::Args(request), 0); }

int NetClient::ResetIPv6Module(const std::string& ifname) {
    return sim::IntAnswer("NetClient.ResetIPv6Module", sim::Args(ifname), 0);
}

}  // namespace dbus

namespace network {
namespace {

Json::Value AddressOrNull(const utils::IPAddress& address) {
    return address.IsAssigned() ? Json::Value(address.Text()) : Json::Value();
}

Json::Value RuleOf(const PolicyRouteRule& rule) {
    Json::Value v(Json::objectValue);
    v["type"] = static_cast<int>(rule.type);
    v["ip"] = AddressOrNull(rule.ip);
    v["mask"] = AddressOrNull(rule.mask);
    v["gateway"] = AddressOrNull(rule.gateway);
    v["prefix_length"] = rule.prefix_length;
    v["interface"] = rule.interface;
    v["service"] = rule.service;
    return v;
}

}  // namespace

int FilterList(std::string cls, Json::Value& list) {
    Json::Value args = sim::Args(cls, Json::Value());
    int result = sim::IntResult("FilterList", 0);
    if (result >= 0) tarncore::KeepClass(cls, list);
    sim::Record("FilterList", args, result);
    return result;
}

PolicyRoute::PolicyRoute() { sim::Record("PolicyRoute.PolicyRoute"); }
PolicyRoute::~PolicyRoute() { sim::Record("PolicyRoute.~PolicyRoute"); }

int PolicyRoute::AddRule(const PolicyRouteRule& rule) {
    return sim::IntAnswer("PolicyRoute.AddRule", sim::Args(RuleOf(rule)), 0);
}

int PolicyRoute::DeleteRule(const IP_TYPE& type, const std::string& service, const std::string& interface) {
    return sim::IntAnswer("PolicyRoute.DeleteRule", sim::Args(static_cast<int>(type), service, interface), 0);
}

int PolicyRoute::EnableTable(const IP_TYPE& type, const std::string& interface, const std::string& source) {
    return sim::IntAnswer("PolicyRoute.EnableTable", sim::Args(static_cast<int>(type), interface, source), 0);
}

int PolicyRoute::DisableTable(const IP_TYPE& type, const std::string& interface) {
    return sim::IntAnswer("PolicyRoute.DisableTable", sim::Args(static_cast<int>(type), interface), 0);
}

StaticRoute::StaticRoute() { sim::Record("StaticRoute.StaticRoute"); }
StaticRoute::~StaticRoute() { sim::Record("StaticRoute.~StaticRoute"); }

int StaticRoute::GetRouteTables(const IP_TYPE& type, Json::Value& tables) {
    int result = sim::IntResult("StaticRoute.GetRouteTables", 0);
    if (result >= 0) tables = sim::Member(sim::Scenario("route_tables"), std::to_string(static_cast<int>(type)));
    sim::Record("StaticRoute.GetRouteTables", sim::Args(static_cast<int>(type), Json::Value()), result);
    return result;
}

int StaticRoute::RefreshRules() { return sim::IntAnswer("StaticRoute.RefreshRules", Json::Value(), 0); }
int StaticRoute::RefreshIpv4Rules() { return sim::IntAnswer("StaticRoute.RefreshIpv4Rules", Json::Value(), 0); }
int StaticRoute::RefreshIpv6Rules() { return sim::IntAnswer("StaticRoute.RefreshIpv6Rules", Json::Value(), 0); }

}  // namespace network

namespace utils {
namespace {

// Scripted list (texts are paired with 0) or the scenario's list for the interface.
AddressList Addresses(const char* op, const Json::Value& stored, const std::string& ifname) {
    Json::Value scripted = sim::Scripted(op);
    const Json::Value& source = scripted.isNull() ? stored : scripted;
    AddressList list;
    Json::Value journal(Json::arrayValue);
    if (source.isArray()) {
        for (const Json::Value& item : source) {
            if (item.isString())
                list.emplace_back(item.asString(), 0);
            else
                list.emplace_back(item[0].asString(), item[1].asInt());
            journal.append(sim::Args(list.back().first, list.back().second));
        }
    }
    sim::Record(op, sim::Args(ifname), journal);
    return list;
}

}  // namespace

AddressList IPAddress::GetIPv6Address(const std::string& ifname) {
    return Addresses("IPAddress.GetIPv6Address", sim::Member(sim::Scenario("ipv6_addresses"), ifname), ifname);
}

AddressList IPAddress::GetIPv4Network(const std::string& ifname) {
    const Json::Value& stored = sim::Member(sim::Member(sim::Scenario("networks"), "ipv4"), ifname);
    return Addresses("IPAddress.GetIPv4Network", stored, ifname);
}

AddressList IPAddress::GetIPv6Network(const std::string& ifname) {
    const Json::Value& stored = sim::Member(sim::Member(sim::Scenario("networks"), "ipv6"), ifname);
    return Addresses("IPAddress.GetIPv6Network", stored, ifname);
}

std::string GenDUID() {
    const Json::Value& stored = sim::Scenario("duid");
    std::string duid = sim::TextResult("GenDUID", stored.isString() ? stored.asString() : "00:03:00:01:02:00:00:00:00:01");
    sim::Record("GenDUID", Json::Value(), duid);
    return duid;
}

}  // namespace utils
}  // namespace tarnnetwork

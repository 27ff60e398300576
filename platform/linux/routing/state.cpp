// The policy state file (/etc/route-mgt/policy-route) and the table names derived from it.
#include "routing/routing.h"

#include "hostkit/atomicfile.h"
#include "hostkit/json.h"

#include <json/writer.h>

#include <cerrno>
#include <cstring>
#include <memory>
#include <set>
#include <sstream>

namespace tarnroute {
namespace {

constexpr char kInterfaces[] = "interfaces";
constexpr char kTable[] = "table";
constexpr char kEnabled[] = "enabled";
constexpr char kSource[] = "source";
constexpr char kRules[] = "rules";
constexpr char kDst[] = "dst";
constexpr char kGateway[] = "gateway";

Json::Value FamilyValue(const FamilyState& state) {
    Json::Value value(Json::objectValue);
    value[kEnabled] = state.enabled;
    value[kSource] = Json::Value(Json::arrayValue);
    for (const Prefix& address : state.source) value[kSource].append(AddressText(address));
    value[kRules] = Json::Value(Json::objectValue);
    for (const auto& [service, rule] : state.rules) {
        Json::Value& entry = value[kRules][service];
        entry[kDst] = PrefixText(rule.dst);
        if (rule.gateway) entry[kGateway] = AddressText(*rule.gateway);
    }
    return value;
}

bool ParseFamily(int family, const Json::Value& value, FamilyState& state, std::string& why) {
    if (value.isNull()) return true;
    if (!value.isObject() || !value[kEnabled].isBool() || !value[kSource].isArray() || !value[kRules].isObject()) {
        why = std::string(FamilyName(family)) + " is not an object with enabled, source and rules";
        return false;
    }
    state.enabled = value[kEnabled].asBool();
    for (const Json::Value& address : value[kSource]) {
        std::optional<Prefix> parsed = address.isString() ? ParseAddress(family, address.asString(), why) : std::nullopt;
        if (!parsed) return false;
        state.source.push_back(*parsed);
    }
    for (const std::string& service : value[kRules].getMemberNames()) {
        const Json::Value& entry = value[kRules][service];
        std::optional<Prefix> dst = entry[kDst].isString() ? ParseDestination(family, entry[kDst].asString(), why) : std::nullopt;
        if (!dst) return false;
        StoredRule rule{*dst, std::nullopt};
        if (entry.isMember(kGateway)) {
            rule.gateway = entry[kGateway].isString() ? ParseAddress(family, entry[kGateway].asString(), why) : std::nullopt;
            if (!rule.gateway) return false;
        }
        state.rules[service] = rule;
    }
    return true;
}

// iproute2 would read these names as numbers, its own tables or a comment: such a table keeps
// its number.
bool NameableTable(const std::string& ifname) {
    static const std::set<std::string> kReserved = {"main", "local", "default", "unspec", "all"};
    bool digits = ifname.find_first_not_of("0123456789") == std::string::npos;
    return !digits && kReserved.count(ifname) == 0 && ifname.find('#') == std::string::npos;
}

}  // namespace

std::string StateText(const PolicyState& state) {
    Json::Value root(Json::objectValue);
    root[kInterfaces] = Json::Value(Json::objectValue);
    for (const auto& [ifname, entry] : state) {
        Json::Value& value = root[kInterfaces][ifname];
        value[kTable] = entry.table;
        value[FamilyName(AF_INET)] = FamilyValue(entry.ipv4);
        value[FamilyName(AF_INET6)] = FamilyValue(entry.ipv6);
    }
    Json::StreamWriterBuilder builder;
    builder["indentation"] = "  ";
    return Json::writeString(builder, root) + "\n";
}

std::optional<PolicyState> ParseState(const std::string& text, std::string& why) {
    Json::Value root;
    std::string errors;
    if (!tarnlinux::ParseStrictJson(text, root, &errors)) {
        why = "not JSON: " + errors;
        return std::nullopt;
    }
    if (!root.isObject() || !root[kInterfaces].isObject()) {
        why = "no \"interfaces\" object";
        return std::nullopt;
    }
    PolicyState state;
    std::set<uint32_t> tables;
    for (const std::string& ifname : root[kInterfaces].getMemberNames()) {
        const Json::Value& value = root[kInterfaces][ifname];
        if (!ValidInterfaceName(ifname, why)) return std::nullopt;
        InterfaceState entry;
        bool tableOk = value.isObject() && value[kTable].isUInt() && value[kTable].asUInt() >= kFirstTable &&
                       value[kTable].asUInt() <= kLastTable && tables.insert(value[kTable].asUInt()).second;
        if (!tableOk) {
            why = ifname + ": table missing, out of range or given twice";
            return std::nullopt;
        }
        entry.table = value[kTable].asUInt();
        if (!ParseFamily(AF_INET, value[FamilyName(AF_INET)], entry.ipv4, why) ||
            !ParseFamily(AF_INET6, value[FamilyName(AF_INET6)], entry.ipv6, why)) {
            why = ifname + ": " + why;
            return std::nullopt;
        }
        state[ifname] = entry;
    }
    return state;
}

InterfaceState* EntryFor(PolicyState& state, const std::string& ifname) {
    auto found = state.find(ifname);
    if (found != state.end()) return &found->second;
    std::set<uint32_t> used;
    for (const auto& [name, entry] : state) used.insert(entry.table);
    for (uint32_t table = kFirstTable; table <= kLastTable; ++table) {
        if (used.count(table) != 0) continue;
        InterfaceState& entry = state[ifname];
        entry.table = table;
        return &entry;
    }
    return nullptr;
}

bool Unused(const InterfaceState& entry) {
    return !entry.ipv4.enabled && !entry.ipv6.enabled && entry.ipv4.rules.empty() && entry.ipv6.rules.empty();
}

void NameForIp(const PolicyState* state, const char* component) {
    auto warn = [&](const char* path) { LogWarning(std::string(path) + " not written: " + std::strerror(errno), component); };
    if (state != nullptr && !tarnlinux::UpdateFile(tarnlinux::kTableNamesPath, TableNamesText(*state)))
        warn(tarnlinux::kTableNamesPath);
    if (!tarnlinux::NameRouteProtocols()) warn(tarnlinux::kProtoNamesPath);
}

std::string TableNamesText(const PolicyState& state) {
    std::map<uint32_t, std::string> byTable;
    for (const auto& [ifname, entry] : state) {
        if (NameableTable(ifname)) byTable[entry.table] = ifname;
    }
    std::ostringstream text;
    text << "# Policy route tables, one per interface; rewritten from " << tarnlinux::kPolicyStatePath << "\n";
    for (const auto& [table, ifname] : byTable) text << table << " " << ifname << "\n";
    return text.str();
}

}  // namespace tarnroute

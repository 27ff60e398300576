#include "service.h"

#include "kernel.h"
#include "store.h"

#include <json/writer.h>
#include <syslog.h>

namespace tarnnetd {
namespace {

std::string Compact(const Json::Value& value) {
    Json::StreamWriterBuilder builder;
    builder["indentation"] = "";
    return Json::writeString(builder, value);
}

Outcome Invalid(const std::string& reason) { return {Outcome::kInvalid, reason}; }

}  // namespace

bool Service::Load(std::string& error) { return LoadRecords(path_, records_, error); }

Outcome Service::List(const Json::Value& request) const {
    Family family;
    std::string error;
    if (!ParseFamily(request, family, error)) return Invalid(error);
    return {Outcome::kDone, Compact(tarnnetd::List(records_.Of(family)))};
}

Outcome Service::ByInterface(const Json::Value& request) const {
    InterfaceRequest parsed;
    std::string error;
    if (!ParseInterface(request, parsed, error)) return Invalid(error);
    const FamilyRecords& family = records_.Of(parsed.family);
    auto found = family.records.find(parsed.ifname);
    if (found == family.records.end()) return {Outcome::kNotFound, "no " + std::string(FamilyName(parsed.family)) + " record of " + parsed.ifname};
    return {Outcome::kDone, Compact(Entry(found->second, family.slaves.count(parsed.ifname) > 0))};
}

Outcome Service::Add(const Json::Value& request) {
    AddRequest parsed;
    std::string error;
    if (!ParseAdd(request, parsed, error)) return Invalid(error);
    Records next = records_;
    tarnnetd::Add(next.Of(parsed.family), parsed);
    return Commit(std::move(next), parsed.family);
}

Outcome Service::Delete(const Json::Value& request) {
    InterfaceRequest parsed;
    std::string error;
    if (!ParseInterface(request, parsed, error)) return Invalid(error);
    Records next = records_;
    tarnnetd::Delete(next.Of(parsed.family), parsed.ifname);
    return Commit(std::move(next), parsed.family);
}

Outcome Service::Copy(const Json::Value& request) {
    CopyRequest parsed;
    std::string error;
    if (!ParseCopy(request, parsed, error)) return Invalid(error);
    Records next = records_;
    if (!tarnnetd::Copy(next.Of(parsed.family), parsed)) return {Outcome::kNotFound, "no record of " + parsed.source + " to copy"};
    return Commit(std::move(next), parsed.family);
}

Outcome Service::SetSlave(const Json::Value& request) {
    SlaveRequest parsed;
    std::string error;
    if (!ParseSlave(request, parsed, error)) return Invalid(error);
    Records next = records_;
    tarnnetd::SetSlave(next.Of(parsed.family), parsed.ifname, parsed.slave);
    return Commit(std::move(next), parsed.family);
}

Outcome Service::Refresh(const Json::Value& request) {
    std::vector<Family> families;
    std::string error;
    if (!ParseRefresh(request, families, error)) return Invalid(error);
    for (Family family : families)
        if (!RefreshFamily(family, error)) return {Outcome::kFailed, error};
    return {Outcome::kDone, ""};
}

Outcome Service::ResetIPv6Module(const Json::Value& request) {
    std::string ifname;
    std::string error;
    if (!ParseIfname(request, ifname, error)) return Invalid(error);
    if (!ResetIPv6(ifname, error)) return {Outcome::kFailed, error};
    return {Outcome::kDone, ""};
}

Outcome Service::Commit(Records next, Family family) {
    std::string error;
    if (!SaveRecords(path_, next, error)) return {Outcome::kFailed, error};
    records_ = std::move(next);
    // The change is stored either way; a route the kernel refuses now is retried by the next
    // refresh, so it is logged rather than answered as a failed change.
    if (!RefreshFamily(family, error)) syslog(LOG_WARNING, "refresh of %s: %s", FamilyName(family), error.c_str());
    return {Outcome::kDone, ""};
}

bool Service::RefreshFamily(Family family, std::string& error) const {
    const FamilyRecords& records = records_.Of(family);
    std::optional<DefaultRoute> route;
    for (const Record* record : Preferred(records)) {
        if (records.slaves.count(record->ifname) > 0) continue;
        std::optional<int> ifindex = UpInterface(record->ifname);
        if (!ifindex) continue;
        route = DefaultRoute{*ifindex, record->gateway};
        break;
    }
    return SetDefaultRoute(family, route, error);
}

}  // namespace tarnnetd

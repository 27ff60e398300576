#include "service.h"

#include "kernel.h"
#include "store.h"

#include <json/writer.h>

#include <algorithm>
#include <syslog.h>

namespace tarnnetd {
namespace {

std::string Compact(const Json::Value& value) {
    Json::StreamWriterBuilder builder;
    builder["indentation"] = "";
    return Json::writeString(builder, value);
}

Outcome Invalid(const std::string& reason) { return {Outcome::kInvalid, reason}; }

const Outcome kApplied{Outcome::kDone, ""};

}  // namespace

bool Service::Load(std::string& error) {
    listed_[0].reset();
    listed_[1].reset();
    return LoadRecords(path_, records_, error);
}

Outcome Service::List(const Json::Value& request) const {
    Family family;
    std::string error;
    if (!ParseFamily(request, family, error)) return Invalid(error);
    std::optional<std::string>& listed = listed_[family == Family::kV4 ? 0 : 1];
    if (!listed) listed = Compact(tarnnetd::List(records_.Of(family)));
    return {Outcome::kDone, *listed};
}

Outcome Service::ByInterface(const Json::Value& request) const {
    InterfaceRequest parsed;
    std::string error;
    if (!ParseInterface(request, parsed, error)) return Invalid(error);
    const FamilyRecords& family = records_.Of(parsed.family);
    auto found = family.records.find(parsed.ifname);
    if (found == family.records.end())
        return {Outcome::kNotFound, "no " + std::string(FamilyName(parsed.family)) + " record of " + parsed.ifname};
    return {Outcome::kDone, Compact(Entry(found->second, family.slaves.count(parsed.ifname) > 0))};
}

Outcome Service::Add(const Json::Value& request) {
    return Change<AddRequest>(request, ParseAdd, [](FamilyRecords& family, const AddRequest& add) {
        tarnnetd::Add(family, add);
        return kApplied;
    });
}

Outcome Service::Delete(const Json::Value& request) {
    return Change<InterfaceRequest>(request, ParseInterface, [](FamilyRecords& family, const InterfaceRequest& del) {
        tarnnetd::Delete(family, del.ifname);
        return kApplied;
    });
}

Outcome Service::Copy(const Json::Value& request) {
    return Change<CopyRequest>(request, ParseCopy, [](FamilyRecords& family, const CopyRequest& copy) {
        if (tarnnetd::Copy(family, copy)) return kApplied;
        return Outcome{Outcome::kNotFound, "no record of " + copy.source + " to copy"};
    });
}

Outcome Service::SetSlave(const Json::Value& request) {
    return Change<SlaveRequest>(request, ParseSlave, [](FamilyRecords& family, const SlaveRequest& slave) {
        tarnnetd::SetSlave(family, slave.ifname, slave.slave);
        return kApplied;
    });
}

Outcome Service::Refresh(const Json::Value& request) {
    std::vector<Family> families;
    std::string error;
    if (!ParseRefresh(request, families, error)) return Invalid(error);
    // One family failing does not keep the other from its route.
    std::string failures;
    for (Family family : families)
        if (!RefreshFamily(family, error)) failures += (failures.empty() ? "" : "; ") + error;
    if (!failures.empty()) return {Outcome::kFailed, failures};
    return kApplied;
}

Outcome Service::ResetIPv6Module(const Json::Value& request) {
    std::string ifname;
    std::string error;
    if (!ParseIfname(request, ifname, error)) return Invalid(error);
    if (!ResetIPv6(ifname, error)) return {Outcome::kFailed, error};
    return kApplied;
}

Outcome Service::UplinkState(const Json::Value& request) const {
    if (!request.isObject()) return Invalid("the request must be a JSON object");
    return {Outcome::kDone, Compact(hooks_.describe ? hooks_.describe() : Json::Value(Json::arrayValue))};
}

void Service::RefreshAll() {
    std::string error;
    for (Family family : {Family::kV4, Family::kV6})
        if (!RefreshFamily(family, error)) syslog(LOG_WARNING, "refresh of %s: %s", FamilyName(family), error.c_str());
}

template <typename Request, typename Apply>
Outcome Service::Change(const Json::Value& request, bool (*parse)(const Json::Value&, Request&, std::string&), Apply apply) {
    Request parsed;
    std::string error;
    if (!parse(request, parsed, error)) return Invalid(error);
    Records next = records_;
    Outcome applied = apply(next.Of(parsed.family), parsed);
    if (applied.kind != Outcome::kDone) return applied;
    return Commit(std::move(next), parsed.family);
}

Outcome Service::Commit(Records next, Family family) {
    std::string error;
    if (!SaveRecords(path_, next, error)) return {Outcome::kFailed, error};
    records_ = std::move(next);
    listed_[0].reset();
    listed_[1].reset();
    // The change is stored either way; a route the kernel refuses now is retried by the next
    // refresh, so it is logged rather than answered as a failed change. Tracking follows the
    // records first, then chooses both families' routes.
    if (hooks_.recordsChanged) {
        hooks_.recordsChanged();
        return kApplied;
    }
    if (!RefreshFamily(family, error)) syslog(LOG_WARNING, "refresh of %s: %s", FamilyName(family), error.c_str());
    return kApplied;
}

bool Service::RefreshFamily(Family family, std::string& error) const {
    LinkStates links;
    if (!ReadLinks(links)) {
        error = "cannot read the interfaces";
        return false;
    }
    const FamilyRecords& records = records_.Of(family);
    std::vector<DefaultRoute> candidates;
    for (const Record* record : Preferred(records)) {
        auto link = links.find(record->ifname);
        if (records.slaves.count(record->ifname) > 0 || link == links.end() || !Usable(link->second, family)) continue;
        candidates.push_back(DefaultRoute{link->second.ifindex, record->ifname, record->gateway});
    }
    // Offline uplinks come last but still count: with every one offline, the most preferred
    // whose link is up keeps the default route.
    if (hooks_.tier) {
        auto tier = [&](const DefaultRoute& route) { return hooks_.tier(family, route.ifname); };
        std::stable_sort(candidates.begin(), candidates.end(),
                         [&](const DefaultRoute& a, const DefaultRoute& b) { return tier(a) < tier(b); });
    }
    return SetDefaultRoute(family, candidates, error);
}

}  // namespace tarnnetd

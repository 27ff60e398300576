#include "records.h"

#include "hostkit/json.h"

#include <arpa/inet.h>
#include <net/if.h>

#include <algorithm>
#include <charconv>
#include <memory>

namespace tarnnetd {
namespace {

constexpr char kV4Name[] = "GTYPE_V4";
constexpr char kV6Name[] = "GTYPE_V6";
constexpr char kAllName[] = "ALL";
// A request is a few short members; anything far larger is junk.
constexpr size_t kMaxRequestBytes = 64 * 1024;
constexpr size_t kMaxClassBytes = 64;
constexpr int kDocumentVersion = 1;

bool Fail(std::string& error, const std::string& reason) {
    error = reason;
    return false;
}

bool Text(const Json::Value& request, const char* name, std::string& out, std::string& error) {
    const Json::Value& member = request[name];
    if (!member.isString()) return Fail(error, std::string("member \"") + name + "\" must be a string");
    out = member.asString();
    return true;
}

bool Flag(const Json::Value& request, const char* name, bool& out, std::string& error) {
    const Json::Value& member = request[name];
    if (!member.isBool()) return Fail(error, std::string("member \"") + name + "\" must be a boolean");
    out = member.asBool();
    return true;
}

bool Ifname(const Json::Value& request, const char* name, std::string& out, std::string& error) {
    if (!Text(request, name, out, error)) return false;
    if (!ValidIfname(out)) return Fail(error, std::string("member \"") + name + "\" is not an interface name");
    return true;
}

bool Address(const Json::Value& request, const char* name, Family family, std::string& out, std::string& error) {
    if (!Text(request, name, out, error)) return false;
    if (!ValidAddress(family, out))
        return Fail(error, std::string("member \"") + name + "\" is not an address of " + FamilyName(family));
    return true;
}

// The members every stored record has; the priority is text in requests, a number on disk.
bool RecordMembers(const Json::Value& object, Family family, Record& record, std::string& error) {
    return Ifname(object, "ifname", record.ifname, error) && Address(object, "gateway", family, record.gateway, error) &&
           Address(object, "dns", family, record.dns, error);
}

bool ClassMember(const Json::Value& object, std::string& cls, std::string& error) {
    if (!Text(object, "class", cls, error)) return false;
    if (!ValidClass(cls)) return Fail(error, "member \"class\" must be printable text of at most 64 bytes");
    return true;
}

bool ReadFamilyDocument(const Json::Value& document, Family family, FamilyRecords& out, std::string& error) {
    const Json::Value& part = document[FamilyName(family)];
    if (part.isNull()) return true;
    if (!part.isObject() || !part["records"].isArray() || !part["slaves"].isArray())
        return Fail(error, std::string(FamilyName(family)) + " must hold the arrays \"records\" and \"slaves\"");
    for (const Json::Value& entry : part["records"]) {
        Record record;
        if (!entry.isObject()) return Fail(error, "a record is not an object");
        if (!RecordMembers(entry, family, record, error) || !ClassMember(entry, record.cls, error)) return false;
        if (!entry["priority"].isUInt()) return Fail(error, "a record's priority is not a non-negative number");
        record.priority = entry["priority"].asUInt();
        if (!out.records.emplace(record.ifname, record).second) return Fail(error, "two records of " + record.ifname);
    }
    for (const Json::Value& slave : part["slaves"]) {
        if (!slave.isString() || !ValidIfname(slave.asString())) return Fail(error, "a slave mark is not an interface name");
        out.slaves.insert(slave.asString());
    }
    return true;
}

Json::Value FamilyDocument(const FamilyRecords& family) {
    Json::Value part(Json::objectValue);
    part["records"] = Json::Value(Json::arrayValue);
    part["slaves"] = Json::Value(Json::arrayValue);
    for (const auto& [ifname, record] : family.records) {
        Json::Value entry = Entry(record, false);
        entry.removeMember("slave");
        part["records"].append(entry);
    }
    for (const std::string& slave : family.slaves) part["slaves"].append(slave);
    return part;
}

}  // namespace

const char* FamilyName(Family family) { return family == Family::kV4 ? kV4Name : kV6Name; }

int AddressFamily(Family family) { return family == Family::kV4 ? AF_INET : AF_INET6; }

bool ParseDocument(const std::string& text, Json::Value& request, std::string& error) {
    if (text.size() > kMaxRequestBytes) return Fail(error, "request longer than 64 KiB");
    if (!tarnlinux::ParseStrictJson(text, request)) return Fail(error, "request is not JSON text");
    if (!request.isObject()) return Fail(error, "request is not a JSON object");
    return true;
}

bool ParseFamily(const Json::Value& request, Family& family, std::string& error) {
    std::string type;
    if (!Text(request, "type", type, error)) return false;
    if (type == kV4Name)
        family = Family::kV4;
    else if (type == kV6Name)
        family = Family::kV6;
    else
        return Fail(error, "member \"type\" must be GTYPE_V4 or GTYPE_V6");
    return true;
}

bool ParseRefresh(const Json::Value& request, std::vector<Family>& families, std::string& error) {
    if (request["type"].isString() && request["type"].asString() == kAllName) {
        families = {Family::kV4, Family::kV6};
        return true;
    }
    Family family;
    if (!ParseFamily(request, family, error)) return Fail(error, "member \"type\" must be GTYPE_V4, GTYPE_V6 or ALL");
    families = {family};
    return true;
}

bool ParseInterface(const Json::Value& request, InterfaceRequest& out, std::string& error) {
    return ParseFamily(request, out.family, error) && Ifname(request, "ifname", out.ifname, error);
}

bool ParseAdd(const Json::Value& request, AddRequest& out, std::string& error) {
    if (!ParseFamily(request, out.family, error) || !RecordMembers(request, out.family, out.record, error)) return false;
    std::string priority;
    if (!Text(request, "priority", priority, error)) return false;
    std::optional<uint32_t> value = ParsePriority(priority);
    if (!value) return Fail(error, "member \"priority\" must be a non-negative decimal number");
    out.record.priority = *value;
    out.hasClass = request.isMember("class");
    return !out.hasClass || ClassMember(request, out.record.cls, error);
}

bool ParseCopy(const Json::Value& request, CopyRequest& out, std::string& error) {
    out.deleteSource = false;
    return ParseFamily(request, out.family, error) && Ifname(request, "interface_source", out.source, error) &&
           Ifname(request, "interface_destination", out.destination, error) &&
           (!request.isMember("interface_source_delete") || Flag(request, "interface_source_delete", out.deleteSource, error));
}

bool ParseSlave(const Json::Value& request, SlaveRequest& out, std::string& error) {
    return ParseFamily(request, out.family, error) && Ifname(request, "ifname", out.ifname, error) &&
           Flag(request, "slave", out.slave, error);
}

bool ParseIfname(const Json::Value& request, std::string& ifname, std::string& error) {
    return Ifname(request, "ifname", ifname, error);
}

bool ValidAddress(Family family, const std::string& text) {
    unsigned char bytes[sizeof(in6_addr)];
    return text.find('\0') == std::string::npos && inet_pton(AddressFamily(family), text.c_str(), bytes) == 1;
}

std::optional<uint32_t> ParsePriority(const std::string& text) {
    uint32_t value = 0;
    const char* end = text.data() + text.size();
    if (text.empty() || !std::all_of(text.begin(), text.end(), [](char c) { return c >= '0' && c <= '9'; })) return std::nullopt;
    auto [ptr, ec] = std::from_chars(text.data(), end, value);
    if (ec != std::errc() || ptr != end) return std::nullopt;
    return value;
}

bool ValidClass(const std::string& text) {
    return text.size() <= kMaxClassBytes && std::all_of(text.begin(), text.end(), [](char c) { return c >= ' ' && c < '\x7f'; });
}

std::vector<const Record*> Preferred(const FamilyRecords& family) {
    std::vector<const Record*> order;
    for (const auto& [ifname, record] : family.records) order.push_back(&record);
    // The map already orders by name, so a stable sort by priority breaks ties by name.
    std::stable_sort(order.begin(), order.end(), [](const Record* a, const Record* b) { return a->priority < b->priority; });
    return order;
}

Json::Value Entry(const Record& record, bool slave) {
    Json::Value entry(Json::objectValue);
    entry["ifname"] = record.ifname;
    entry["gateway"] = record.gateway;
    entry["dns"] = record.dns;
    entry["priority"] = record.priority;
    entry["class"] = record.cls;
    entry["slave"] = slave;
    return entry;
}

Json::Value List(const FamilyRecords& family) {
    Json::Value list(Json::arrayValue);
    for (const Record* record : Preferred(family)) list.append(Entry(*record, family.slaves.count(record->ifname) > 0));
    return list;
}

void Add(FamilyRecords& family, const AddRequest& request) {
    Record record = request.record;
    auto old = family.records.find(record.ifname);
    if (!request.hasClass && old != family.records.end()) record.cls = old->second.cls;
    family.records[record.ifname] = record;
}

void Delete(FamilyRecords& family, const std::string& ifname) { family.records.erase(ifname); }

bool Copy(FamilyRecords& family, const CopyRequest& request) {
    auto source = family.records.find(request.source);
    if (source == family.records.end()) return false;
    Record copy = source->second;
    copy.ifname = request.destination;
    if (request.deleteSource) family.records.erase(source);
    family.records[copy.ifname] = copy;
    return true;
}

void SetSlave(FamilyRecords& family, const std::string& ifname, bool slave) {
    if (slave)
        family.slaves.insert(ifname);
    else
        family.slaves.erase(ifname);
}

Json::Value ToDocument(const Records& records) {
    Json::Value document(Json::objectValue);
    document["version"] = kDocumentVersion;
    document[kV4Name] = FamilyDocument(records.v4);
    document[kV6Name] = FamilyDocument(records.v6);
    return document;
}

bool FromDocument(const Json::Value& document, Records& records, std::string& error) {
    if (!document.isObject() || document["version"] != kDocumentVersion) return Fail(error, "not a version 1 record document");
    Records read;
    if (!ReadFamilyDocument(document, Family::kV4, read.v4, error) || !ReadFamilyDocument(document, Family::kV6, read.v6, error))
        return false;
    records = std::move(read);
    return true;
}

}  // namespace tarnnetd

// The gateway records in memory, the rules a request must pass, and the record file's
// document. Nothing here touches the bus, the kernel or the disk.
#ifndef TARNNETD_RECORDS_H
#define TARNNETD_RECORDS_H

#include "hostkit/ifname.h"

#include <json/value.h>

#include <cstdint>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <vector>

namespace tarnnetd {

enum class Family { kV4, kV6 };

struct Record {
    std::string ifname;
    std::string gateway;
    std::string dns;
    uint32_t priority = 0;
    std::string cls;  // "" when the record has no class
};

struct FamilyRecords {
    std::map<std::string, Record> records;  // by interface name
    std::set<std::string> slaves;           // marked interfaces, with or without a record
};

struct Records {
    FamilyRecords v4;
    FamilyRecords v6;
    FamilyRecords& Of(Family family) { return family == Family::kV4 ? v4 : v6; }
    const FamilyRecords& Of(Family family) const { return family == Family::kV4 ? v4 : v6; }
};

// "GTYPE_V4" / "GTYPE_V6".
const char* FamilyName(Family family);
int AddressFamily(Family family);  // AF_INET / AF_INET6

// Requests, checked member by member. Each parser returns false with a one-line reason.
struct InterfaceRequest {
    Family family;
    std::string ifname;
};
struct CopyRequest {
    Family family;
    std::string source;
    std::string destination;
    bool deleteSource;
};
struct SlaveRequest {
    Family family;
    std::string ifname;
    bool slave;
};
struct AddRequest {
    Family family;
    Record record;
    bool hasClass;
};

// The request text as a JSON object: strict syntax, no duplicate members, bounded size.
bool ParseDocument(const std::string& text, Json::Value& request, std::string& error);
bool ParseFamily(const Json::Value& request, Family& family, std::string& error);
// "ALL" gives both families.
bool ParseRefresh(const Json::Value& request, std::vector<Family>& families, std::string& error);
bool ParseInterface(const Json::Value& request, InterfaceRequest& out, std::string& error);
bool ParseAdd(const Json::Value& request, AddRequest& out, std::string& error);
bool ParseCopy(const Json::Value& request, CopyRequest& out, std::string& error);
bool ParseSlave(const Json::Value& request, SlaveRequest& out, std::string& error);
// {"ifname"} only: the IPv6 reset has no family.
bool ParseIfname(const Json::Value& request, std::string& ifname, std::string& error);

// Single values, as the kernel and the record file accept them.
using tarnlinux::ValidIfname;
bool ValidAddress(Family family, const std::string& text);
std::optional<uint32_t> ParsePriority(const std::string& text);
bool ValidClass(const std::string& text);

// The family's records, most preferred first: priority ascending, ties by interface name.
std::vector<const Record*> Preferred(const FamilyRecords& family);
// One record as the queries answer it, with "slave" as a boolean.
Json::Value Entry(const Record& record, bool slave);
Json::Value List(const FamilyRecords& family);

// Changes; false when the record they need does not exist.
void Add(FamilyRecords& family, const AddRequest& request);
void Delete(FamilyRecords& family, const std::string& ifname);
bool Copy(FamilyRecords& family, const CopyRequest& request);
void SetSlave(FamilyRecords& family, const std::string& ifname, bool slave);

// The record file's document, and back; reading checks every record as a request would be.
Json::Value ToDocument(const Records& records);
bool FromDocument(const Json::Value& document, Records& records, std::string& error);

}  // namespace tarnnetd

#endif

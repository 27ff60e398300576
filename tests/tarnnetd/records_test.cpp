// The rules every request must pass, the order of the records and what each change keeps.
#include "records.h"

#include <gtest/gtest.h>

#include <functional>
#include <string>
#include <tuple>

namespace {

using namespace tarnnetd;

using Parser = std::function<bool(const Json::Value&, std::string&)>;

// A request parser whose parsed request is thrown away.
template <typename Out, bool (*Parse)(const Json::Value&, Out&, std::string&)>
bool Check(const Json::Value& request, std::string& error) {
    Out out;
    return Parse(request, out, error);
}
const Parser Add = Check<AddRequest, ParseAdd>, Copy = Check<CopyRequest, ParseCopy>, Slave = Check<SlaveRequest, ParseSlave>,
             Refresh = Check<std::vector<Family>, ParseRefresh>;

void ExpectParse(const Parser& parse, const Json::Value& request, const char* reason, const std::string& what) {
    std::string error;
    EXPECT_EQ(parse(request, error), *reason == '\0') << what << ": " << error;
    EXPECT_NE(error.find(reason), std::string::npos) << what << ": " << error;
}

Json::Value Document(const std::string& text) {
    Json::Value request;
    std::string error;
    EXPECT_TRUE(ParseDocument(text, request, error)) << text;
    return request;
}

constexpr char kValidAdd[] = R"({"type":"GTYPE_V4","ifname":"eth0","gateway":"192.0.2.1","dns":"192.0.2.53","priority":"1"})";

TEST(Requests, AddIsCheckedMemberByMember) {
    // A valid add with one member set to another JSON value (or removed, for null).
    const std::tuple<const char*, const char*, const char*> cases[] = {
        {"type", nullptr, "\"type\" must be a string"},
        {"type", R"("GTYPE_V5")", "GTYPE_V4 or GTYPE_V6"},
        {"type", R"("GTYPE_V6")", "\"gateway\" is not an address of GTYPE_V6"},
        {"ifname", R"("eth 0")", "not an interface name"},
        {"gateway", R"("2001:db8::1")", "\"gateway\" is not an address of GTYPE_V4"},
        {"dns", R"("192.0.2.256")", "\"dns\" is not an address of GTYPE_V4"},
        {"priority", "10", "\"priority\" must be a string"},
        {"priority", R"("1x")", "non-negative decimal"},
        {"class", R"("a\nb")", "printable"},
    };
    for (const auto& [member, value, reason] : cases) {
        Json::Value request = Document(kValidAdd);
        if (value == nullptr)
            request.removeMember(member);
        else
            request[member] = Document(std::string("{\"v\":") + value + "}")["v"];
        ExpectParse(Add, request, reason, std::string(member) + "=" + (value ? value : "absent"));
    }
}

TEST(Requests, OtherChangesAreCheckedToo) {
    const std::tuple<Parser, const char*, const char*> cases[] = {
        // parser, request, reason ("" when valid)
        {Copy, R"({"type":"GTYPE_V4","interface_source":"eth0","interface_destination":"eth1"})", ""},
        {Copy, R"({"type":"GTYPE_V4","interface_source":"eth0","interface_destination":"eth1","interface_source_delete":1})",
         "must be a boolean"},
        {Slave, R"({"type":"GTYPE_V6","ifname":"eth0","slave":"yes"})", "\"slave\" must be a boolean"},
        {Refresh, R"({"type":"all"})", "GTYPE_V4, GTYPE_V6 or ALL"},
    };
    for (const auto& [parse, text, reason] : cases) ExpectParse(parse, Document(text), reason, text);
}

TEST(Requests, PriorityIsAPlainNonNegativeDecimalThatFits) {
    const std::pair<const char*, std::optional<uint32_t>> cases[] = {
        {"0", 0u},          {"007", 7u},          {"4294967295", 4294967295u}, {"4294967296", std::nullopt},
        {"", std::nullopt}, {"-1", std::nullopt}, {"1e3", std::nullopt},
    };
    for (const auto& [text, expected] : cases) EXPECT_EQ(ParsePriority(text), expected) << text;
}

TEST(Requests, DocumentMustBeOneStrictJsonObjectOfBoundedSize) {
    const std::pair<std::string, const char*> cases[] = {
        {"not json", "not JSON text"},
        {"[]", "not a JSON object"},
        {"{} {}", "not JSON text"},
        {R"({"type":"GTYPE_V4","type":"GTYPE_V6"})", "not JSON text"},
        {"{\"x\":\"" + std::string(64 * 1024, 'x') + "\"}", "longer than 64 KiB"},
    };
    for (const auto& [text, reason] : cases) {
        Json::Value request;
        std::string error;
        EXPECT_FALSE(ParseDocument(text, request, error)) << text.substr(0, 40);
        EXPECT_NE(error.find(reason), std::string::npos) << error;
    }
}

AddRequest AddOf(const std::string& ifname, uint32_t priority, const char* cls = nullptr) {
    AddRequest request{Family::kV4, {ifname, "192.0.2.1", "192.0.2.53", priority, cls ? cls : ""}, cls != nullptr};
    return request;
}

std::vector<std::string> Order(const FamilyRecords& family) {
    std::vector<std::string> names;
    for (const Json::Value& entry : List(family)) names.push_back(entry["ifname"].asString());
    return names;
}

TEST(Records, ListByNumericPriorityThenName) {
    FamilyRecords family;
    for (auto [name, priority] : {std::pair{"eth9", 10}, {"eth1", 9}, {"eth3", 10}, {"eth0", 100}})
        tarnnetd::Add(family, AddOf(name, priority));
    EXPECT_EQ(Order(family), (std::vector<std::string>{"eth1", "eth3", "eth9", "eth0"}));
}

TEST(Records, AddKeepsTheOldClassOnlyWhenTheRequestHasNone) {
    FamilyRecords family;
    tarnnetd::Add(family, AddOf("eth0", 5, "wan"));
    tarnnetd::Add(family, AddOf("eth0", 7));
    EXPECT_EQ(family.records.at("eth0").cls, "wan");
    EXPECT_EQ(family.records.at("eth0").priority, 7u);
    tarnnetd::Add(family, AddOf("eth0", 7, ""));
    EXPECT_EQ(family.records.at("eth0").cls, "");
}

TEST(Records, CopyReplacesTheDestinationAndMovesOnlyWhenAsked) {
    FamilyRecords family;
    tarnnetd::Add(family, AddOf("eth0", 5, "wan"));
    tarnnetd::Add(family, AddOf("eth1", 1, "lan"));
    EXPECT_TRUE(tarnnetd::Copy(family, {Family::kV4, "eth0", "eth1", false}));
    EXPECT_EQ(family.records.at("eth1").cls, "wan");
    EXPECT_EQ(family.records.at("eth1").ifname, "eth1");
    EXPECT_EQ(family.records.count("eth0"), 1u);
    EXPECT_TRUE(tarnnetd::Copy(family, {Family::kV4, "eth0", "eth2", true}));
    EXPECT_EQ(Order(family), (std::vector<std::string>{"eth1", "eth2"}));
    EXPECT_FALSE(tarnnetd::Copy(family, {Family::kV4, "eth0", "eth3", false}));
}

TEST(Records, SlaveMarkOutlivesAndPrecedesItsRecord) {
    FamilyRecords family;
    tarnnetd::SetSlave(family, "eth0", true);
    tarnnetd::Add(family, AddOf("eth0", 5));
    EXPECT_TRUE(List(family)[0]["slave"].asBool());
    tarnnetd::Delete(family, "eth0");
    EXPECT_EQ(family.slaves.count("eth0"), 1u);
    tarnnetd::SetSlave(family, "eth0", false);
    EXPECT_TRUE(family.slaves.empty());
}

TEST(Document, RefusesWhatARequestWouldBeRefused) {
    Records records;
    tarnnetd::Add(records.v4, AddOf("eth0", 5, "wan"));
    tarnnetd::SetSlave(records.v6, "eth1", true);
    const Records back = records;
    std::string error;

    const std::pair<std::function<void(Json::Value&)>, const char*> damages[] = {
        {[](Json::Value& d) { d.removeMember("version"); }, "version 1"},
        {[](Json::Value& d) { d["GTYPE_V4"]["records"][0]["gateway"] = "2001:db8::1"; }, "\"gateway\""},
        {[](Json::Value& d) { d["GTYPE_V4"]["records"][0]["priority"] = -1; }, "priority"},
        {[](Json::Value& d) { d["GTYPE_V4"]["records"].append(d["GTYPE_V4"]["records"][0]); }, "two records of eth0"},
        {[](Json::Value& d) { d["GTYPE_V6"]["slaves"][0] = 3; }, "slave mark"},
    };
    for (const auto& [damage, reason] : damages) {
        Json::Value document = ToDocument(records);
        damage(document);
        Records untouched = back;
        EXPECT_FALSE(FromDocument(document, untouched, error)) << reason;
        EXPECT_NE(error.find(reason), std::string::npos) << error;
        EXPECT_EQ(ToDocument(untouched), ToDocument(back));
    }
}

}  // namespace

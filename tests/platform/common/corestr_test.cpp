#include "common/corestr.h"

#include <gtest/gtest.h>
#include <json/reader.h>

#include <memory>
#include <sstream>
#include <string>
#include <vector>

namespace {

struct ListFree {
    void operator()(TLIBCSzList* list) const { tarncore::SzListFree(list); }
};
using List = std::unique_ptr<TLIBCSzList, ListFree>;

std::vector<std::string> Items(const TLIBCSzList* list) {
    std::vector<std::string> items;
    for (int i = 0; i < list->nItem; ++i) items.emplace_back(tarncore::SzListGet(list, i));
    return items;
}

TEST(SzList, GrowsAndMovesWithoutLosingItems) {
    TLIBCSzList* raw = tarncore::SzListAlloc(16);
    ASSERT_NE(raw, nullptr);
    std::vector<std::string> want;
    for (int i = 0; i < 500; ++i) {
        want.push_back("item-" + std::to_string(i) + std::string(static_cast<size_t>(i % 37), 'x'));
        ASSERT_EQ(tarncore::SzListAdd(&raw, want.back().c_str()), 0);
    }
    List list(raw);
    EXPECT_EQ(list->nItem, 500);
    EXPECT_EQ(Items(list.get()), want);
}

TEST(SzList, OutOfRangeIsNullAndRemoveAllKeepsItUsable) {
    TLIBCSzList* raw = tarncore::SzListAlloc(1024);
    ASSERT_EQ(tarncore::SzListAdd(&raw, "a"), 0);
    List list(raw);
    EXPECT_EQ(tarncore::SzListGet(list.get(), -1), nullptr);
    EXPECT_EQ(tarncore::SzListGet(list.get(), 1), nullptr);
    EXPECT_EQ(tarncore::SzListGet(nullptr, 0), nullptr);
    EXPECT_EQ(tarncore::SzListRemoveAll(list.get()), 0);
    EXPECT_EQ(list->nItem, 0);
    raw = list.release();
    ASSERT_EQ(tarncore::SzListAdd(&raw, "b"), 0);
    list.reset(raw);
    EXPECT_EQ(Items(list.get()), std::vector<std::string>{"b"});
}

struct SepCase {
    const char* text;
    const char* separators;
    std::vector<std::string> pieces;
};

void PrintTo(const SepCase& c, std::ostream* os) { *os << '"' << c.text << '"'; }

class StrSep : public ::testing::TestWithParam<SepCase> {};

TEST_P(StrSep, Pieces) {
    TLIBCSzList* raw = tarncore::SzListAlloc(8);
    int added = tarncore::StrSep(GetParam().text, GetParam().separators, &raw);
    List list(raw);
    EXPECT_EQ(added, static_cast<int>(GetParam().pieces.size()));
    EXPECT_EQ(Items(list.get()), GetParam().pieces);
}

INSTANTIATE_TEST_SUITE_P(Cases, StrSep,
                         ::testing::Values(SepCase{"          inet addr:192.0.2.10  Bcast:192.0.2.255  Mask:255.255.255.0\n",
                                                   " ",
                                                   {"inet", "addr:192.0.2.10", "Bcast:192.0.2.255", "Mask:255.255.255.0\n"}},
                                           SepCase{"", " ", {}}, SepCase{"   ", " ", {}}, SepCase{"one", " ", {"one"}},
                                           SepCase{"a,b;;c", ",;", {"a", "b", "c"}}));

struct ReplaceCase {
    const char* text;
    const char* from;
    const char* to;
    int max;
    int size;
    int result;
    const char* after;
};

void PrintTo(const ReplaceCase& c, std::ostream* os) { *os << c.text << "->" << c.after; }

class StrReplace : public ::testing::TestWithParam<ReplaceCase> {};

TEST_P(StrReplace, InPlace) {
    const ReplaceCase& c = GetParam();
    std::vector<char> buf(64, '\0');
    std::string(c.text).copy(buf.data(), buf.size() - 1);
    EXPECT_EQ(tarncore::StrReplace(buf.data(), c.from, c.to, c.max, c.size), c.result);
    EXPECT_STREQ(buf.data(), c.after);
}

INSTANTIATE_TEST_SUITE_P(Cases, StrReplace,
                         ::testing::Values(ReplaceCase{"addr:192.0.2.10", "addr:", "", 0, 1024, 1, "192.0.2.10"},
                                           ReplaceCase{"a-a-a", "a", "bb", 0, 64, 3, "bb-bb-bb"},
                                           ReplaceCase{"a-a-a", "a", "bb", 2, 64, 2, "bb-bb-a"},
                                           ReplaceCase{"none here", "addr:", "", 0, 64, 0, "none here"},
                                           ReplaceCase{"aaaa", "a", "bbb", 0, 10, -1, "aaaa"},
                                           ReplaceCase{"aaa", "a", "bbb", 0, 10, 3, "bbbbbbbbb"}));

struct SubnetCase {
    const char* item;
    int size;
    const char* address;
    int prefixLen;
};

void PrintTo(const SubnetCase& c, std::ostream* os) { *os << c.item; }

class SeperateSubnet : public ::testing::TestWithParam<SubnetCase> {};

TEST_P(SeperateSubnet, AddressPart) {
    char buf[64];
    int prefixLen = -7;
    ASSERT_EQ(tarncore::SeperateSubnet(GetParam().item, buf, GetParam().size, &prefixLen), 0);
    EXPECT_STREQ(buf, GetParam().address);
    EXPECT_EQ(prefixLen, GetParam().prefixLen);
}

INSTANTIATE_TEST_SUITE_P(Cases, SeperateSubnet,
                         ::testing::Values(SubnetCase{"192.0.2.11/24", 20, "192.0.2.11", 24},
                                           SubnetCase{"198.51.100.7", 20, "198.51.100.7", -7},
                                           SubnetCase{"2001:db8:1234:5678::1/64", 20, "2001:db8:1234:5678:", 64},
                                           SubnetCase{"/8", 20, "", 8}, SubnetCase{"192.0.2.1/x", 20, "192.0.2.1", -7}));

TEST(KeepClass, KeepsOnlyObjectsOfTheClassAndLeavesOtherKindsAlone) {
    Json::Value list;
    std::istringstream in(R"([{"ifname":"eth0","class":"wan"},{"ifname":"eth1","class":"lan"},
        "text",{"ifname":"eth2"},{"ifname":"eth3","class":["wan"]},{"ifname":"eth4","class":"wan"}])");
    ASSERT_TRUE(Json::parseFromStream(Json::CharReaderBuilder(), in, &list, nullptr));
    tarncore::KeepClass("wan", list);
    ASSERT_EQ(list.size(), 2u);
    EXPECT_EQ(list[0]["ifname"], "eth0");
    EXPECT_EQ(list[1]["ifname"], "eth4");

    Json::Value object(Json::objectValue);
    object["class"] = "wan";
    tarncore::KeepClass("wan", object);
    EXPECT_TRUE(object.isObject());
}

}  // namespace

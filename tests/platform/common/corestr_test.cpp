#include "corestr.h"

#include <gtest/gtest.h>
#include <json/reader.h>

#include <cstring>
#include <memory>
#include <sstream>
#include <string>
#include <vector>

namespace {

struct ListFree {
    void operator()(TLIBCSzList* list) const { tarncore::SzListFree(list); }
};
using List = std::unique_ptr<TLIBCSzList, ListFree>;

// The items, reading one past the end too, which must be null.
std::vector<std::string> Items(const TLIBCSzList* list) {
    std::vector<std::string> items;
    for (int i = 0; i <= list->nItem; ++i)
        if (const char* item = tarncore::SzListGet(list, i)) items.emplace_back(item);
    return items;
}

TEST(SzList, GrowsWithoutLosingItemsAndEmptiesForReuse) {
    TLIBCSzList* raw = tarncore::SzListAlloc(16);
    ASSERT_NE(raw, nullptr);
    std::vector<std::string> want;
    for (int i = 0; i < 500; ++i) {
        want.push_back("item-" + std::to_string(i) + std::string(static_cast<size_t>(i % 37), 'x'));
        ASSERT_EQ(tarncore::SzListAdd(&raw, want.back().c_str()), 0);
    }
    List list(raw);
    EXPECT_EQ(Items(list.get()), want);
    EXPECT_EQ(tarncore::SzListRemoveAll(list.get()), 0);
    raw = list.release();
    ASSERT_EQ(tarncore::SzListAdd(&raw, "b"), 0);
    list.reset(raw);
    EXPECT_EQ(Items(list.get()), std::vector<std::string>{"b"});
}

// Replaces up to `max` (0: every) occurrence; a result that does not fit leaves the text as it was.
TEST(StrReplace, CountsAndRefusesWhatDoesNotFit) {
    auto replace = [](const char* text, int max, int size) {
        std::string buf(64, '\0');
        buf.replace(0, std::strlen(text), text);
        int count = tarncore::StrReplace(buf.data(), "a", "bb", max, size);
        return std::pair{count, std::string(buf.c_str())};
    };
    EXPECT_EQ(replace("a-a-a", 0, 64), (std::pair{3, std::string("bb-bb-bb")}));
    EXPECT_EQ(replace("a-a-a", 2, 64), (std::pair{2, std::string("bb-bb-a")}));
    EXPECT_EQ(replace("aaaaa", 0, 10), (std::pair{-1, std::string("aaaaa")}));
}

TEST(KeepClass, KeepsObjectsOfExactlyTheClass) {
    Json::Value list;
    std::istringstream in(R"([{"ifname":"eth0","class":"wan"},{"ifname":"eth1","class":"wan2"},"text",{"ifname":"eth2"},
        {"ifname":"eth3","class":["wan"]},{"ifname":"eth4","class":"wan"}])");
    ASSERT_TRUE(Json::parseFromStream(Json::CharReaderBuilder(), in, &list, nullptr));
    tarncore::KeepClass("wan", list);
    ASSERT_EQ(list.size(), 2u);
    EXPECT_EQ(list[0]["ifname"], "eth0");
    EXPECT_EQ(list[1]["ifname"], "eth4");
}

}  // namespace

// The record file: what a start finds, what a change leaves on disk, and that a file we
// cannot read is kept aside, never overwritten.
#include "store.h"

#include "blackbox/tempdir.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <filesystem>
#include <fstream>

namespace {

namespace fs = std::filesystem;
using namespace tarnnetd;

class Store : public ::testing::Test {
protected:
    void Write(const std::string& text) {
        fs::create_directories(fs::path(path_).parent_path());
        std::ofstream(path_) << text;
    }
    std::vector<std::string> Names() const {
        std::vector<std::string> names;
        for (const auto& entry : fs::directory_iterator(fs::path(path_).parent_path())) names.push_back(entry.path().filename());
        std::sort(names.begin(), names.end());
        return names;
    }
    static Records Sample() {
        Records records;
        records.v4.records["eth0"] = {"eth0", "192.0.2.1", "192.0.2.53", 10, "wan"};
        records.v6.records["eth1"] = {"eth1", "fe80::1", "2001:db8::53", 0, ""};
        records.v6.slaves.insert("eth2");
        return records;
    }

    blackbox::TempDir tmp_;
    fs::path dir_{tmp_.Path()};
    std::string path_{(dir_ / "route-mgt" / "gateway_priority").string()};
};

TEST_F(Store, MissingFileIsAnEmptySetAndNothingIsCreated) {
    Records records = Sample();
    std::string error;
    ASSERT_TRUE(LoadRecords(path_, records, error)) << error;
    EXPECT_TRUE(records.v4.records.empty() && records.v6.records.empty() && records.v6.slaves.empty());
    EXPECT_FALSE(fs::exists(fs::path(path_).parent_path()));
}

TEST_F(Store, SavedRecordsComeBackAndLeaveOnlyTheFile) {
    std::string error;
    ASSERT_TRUE(SaveRecords(path_, Sample(), error)) << error;
    // What a write cut short by a kill leaves; names of other shapes are not ours to remove.
    std::ofstream(path_ + ".a1B2c3") << "{ half";
    std::ofstream(path_ + ".keep") << "x";
    ASSERT_TRUE(SaveRecords(path_, Sample(), error)) << error;
    RemoveLeftovers(path_);
    Records back;
    ASSERT_TRUE(LoadRecords(path_, back, error)) << error;
    EXPECT_EQ(ToDocument(back), ToDocument(Sample()));
    EXPECT_EQ(Names(), (std::vector<std::string>{"gateway_priority", "gateway_priority.keep"}));
    // What would not be read back is never written.
    Records many = Sample();
    for (int i = 0; i < 5000; ++i)
        many.v4.records["e" + std::to_string(i)] = {"e" + std::to_string(i), "192.0.2.1", "", static_cast<uint32_t>(i),
                                                    std::string(1000, 'c')};
    EXPECT_FALSE(SaveRecords(path_, many, error));
    ASSERT_TRUE(LoadRecords(path_, back, error)) << error;
    EXPECT_EQ(ToDocument(back), ToDocument(Sample()));
    struct stat info;
    ASSERT_EQ(stat(path_.c_str(), &info), 0);
    EXPECT_EQ(info.st_mode & 07777, 0644u);
}

// Each row: the text in the file's place, or (link) in a file elsewhere that a link in its place
// names; a link is never followed.
TEST_F(Store, UnreadableFileIsMovedAsideWholeAndTheSetStartsEmpty) {
    const std::pair<std::string, bool> cases[] = {
        {"{ half a docu", false},
        {R"({"version":1,"GTYPE_V4":{"records":[{"ifname":"eth0","gateway":"x","dns":"192.0.2.53","priority":1,"class":""}],"slaves":[]}})",
         false},
        {R"({"version":2})", false},
        {R"({"version":1})", true},
    };
    for (const auto& [text, link] : cases) {
        fs::remove_all(fs::path(path_).parent_path());
        Write(text);
        if (link) fs::rename(path_, dir_ / "elsewhere");
        if (link) fs::create_symlink(dir_ / "elsewhere", path_);
        Records records = Sample();
        std::string error;
        ASSERT_TRUE(LoadRecords(path_, records, error)) << error;
        EXPECT_TRUE(records.v4.records.empty() && records.v6.records.empty()) << text;
        std::vector<std::string> names = Names();
        ASSERT_EQ(names.size(), 1u) << text;
        EXPECT_EQ(names[0].rfind("gateway_priority.unreadable-", 0), 0u) << names[0];
        std::ifstream aside(fs::path(path_).parent_path() / names[0]);
        EXPECT_EQ(std::string(std::istreambuf_iterator<char>(aside), {}), text);
    }
}

}  // namespace

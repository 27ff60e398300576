// What every file and document of ours goes through: the atomic rewrite (directories made, an
// unchanged file left alone, no temporary left, a link never followed) and strict JSON.
#include "hostkit/atomicfile.h"
#include "hostkit/json.h"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>

namespace {

using namespace tarnlinux;
namespace fs = std::filesystem;

class AtomicFile : public ::testing::Test {
protected:
    void SetUp() override { dir_ = fs::temp_directory_path() / ("atomicfile_test." + std::to_string(getpid())); }
    void TearDown() override { fs::remove_all(dir_); }
    fs::path dir_;
};

TEST_F(AtomicFile, WritesMakesDirectoriesAndRefusesLinks) {
    std::string path = (dir_ / "etc/route-mgt/policy-route").string();
    ASSERT_TRUE(UpdateFile(path, "one\n"));
    struct stat first;
    ASSERT_EQ(stat(path.c_str(), &first), 0);
    EXPECT_EQ(first.st_mode & 07777, 0644u);
    EXPECT_EQ(fs::status(dir_ / "etc").permissions(), fs::perms(0755));
    ASSERT_TRUE(UpdateFile(path, "one\n"));
    struct stat same;
    ASSERT_EQ(stat(path.c_str(), &same), 0);
    EXPECT_EQ(same.st_ino, first.st_ino) << "an unchanged file is not rewritten";
    ASSERT_TRUE(UpdateFile(path, "two\n"));
    std::string text;
    ASSERT_EQ(ReadRegular(path, text), ReadResult::kRead);
    EXPECT_EQ(text, "two\n");
    EXPECT_EQ(std::distance(fs::directory_iterator(dir_ / "etc/route-mgt"), fs::directory_iterator()), 1) << "no temporary left";

    fs::path link = dir_ / "link";
    fs::create_symlink(path, link);
    EXPECT_FALSE(UpdateFile(link.string(), "three\n"));
    EXPECT_EQ(ReadRegular(link.string(), text), ReadResult::kRefused);
    EXPECT_TRUE(fs::is_symlink(link));
    EXPECT_EQ(ReadRegular((dir_ / "missing").string(), text), ReadResult::kMissing);
}

TEST(StrictJson, TakesOneValueAndNothingElse) {
    const std::string deep = std::string(1001, '[') + std::string(1001, ']');
    const struct {
        std::string text;
        bool ok;
    } rows[] = {
        {R"({"a": "x/y", "b": [1, "\"/*"]})", true}, {R"({"a": 1 /* c */})", false},
        {"{\"a\": 1, // c\n\"b\": 2}", false},       {"{\"a\": 1}\n// c\n", false},
        {"\xEF\xBB\xBF{\"a\": 1}", false},           {deep, false},
    };
    for (const auto& row : rows) {
        Json::Value value;
        std::string why;
        EXPECT_EQ(tarnlinux::ParseStrictJson(row.text, value, &why), row.ok) << row.text.substr(0, 40);
        EXPECT_EQ(why.empty(), row.ok) << why;
    }
}

}  // namespace

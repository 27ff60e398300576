// The atomic rewrite that every file we own goes through: directories made, an unchanged file
// left alone, no temporary left, and a link never followed.
#include "hostkit/atomicfile.h"

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

}  // namespace

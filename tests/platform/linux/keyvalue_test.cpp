// Key/value files: lookups, line rewrites, and what a rewrite keeps of the file.
#include "linux/linux.h"
#include "tarncore.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <filesystem>
#include <fstream>
#include <sstream>

namespace {

namespace fs = std::filesystem;

struct ValueCase {
    const char* name;
    const char* text;
    std::optional<std::string> value;
};

void PrintTo(const ValueCase& c, std::ostream* os) { *os << c.name; }

class Value : public ::testing::TestWithParam<ValueCase> {};

TEST_P(Value, OfKey) { EXPECT_EQ(tarnlinux::ValueOf(GetParam().text, "ovpn_enable_ipv6"), GetParam().value); }

INSTANTIATE_TEST_SUITE_P(
    Cases, Value,
    ::testing::Values(ValueCase{"Plain", "a=1\novpn_enable_ipv6=yes\n", "yes"},
                      ValueCase{"QuotesRemoved", "ovpn_enable_ipv6=\"yes\"\n", "yes"},
                      ValueCase{"InnerQuotesKept", "ovpn_enable_ipv6=\"a\"b\"\n", "a\"b"},
                      ValueCase{"LoneQuoteKept", "ovpn_enable_ipv6=\"\n", "\""},
                      ValueCase{"FirstMatchWins", "ovpn_enable_ipv6=no\novpn_enable_ipv6=yes\n", "no"},
                      ValueCase{"CommentSkipped", "#ovpn_enable_ipv6=no\n  # ovpn_enable_ipv6=no\novpn_enable_ipv6=yes", "yes"},
                      ValueCase{"BlanksAroundTrimmed", "\n\n  ovpn_enable_ipv6 = \"yes\" \r\n", "yes"},
                      ValueCase{"EmptyValue", "ovpn_enable_ipv6=\n", ""},
                      ValueCase{"ValueWithEquals", "ovpn_enable_ipv6=a=b\n", "a=b"},
                      ValueCase{"LongerKeyIsAnother", "ovpn_enable_ipv6_x=yes\nx_ovpn_enable_ipv6=yes\n", std::nullopt},
                      ValueCase{"NoEquals", "ovpn_enable_ipv6 yes\n", std::nullopt},
                      ValueCase{"CaseMatters", "OVPN_ENABLE_IPV6=yes\n", std::nullopt}, ValueCase{"Empty", "", std::nullopt}),
    [](const ::testing::TestParamInfo<ValueCase>& info) { return std::string(info.param.name); });

struct LineCase {
    const char* name;
    const char* before;
    const char* after;
};

void PrintTo(const LineCase& c, std::ostream* os) { *os << c.name; }

class SetLine : public ::testing::TestWithParam<LineCase> {};

TEST_P(SetLine, Text) {
    EXPECT_EQ(tarnlinux::WithLine(GetParam().before, "server-ipv6", "server-ipv6 2001:db8:1::/64"), GetParam().after);
}

INSTANTIATE_TEST_SUITE_P(
    Cases, SetLine,
    ::testing::Values(LineCase{"ReplacedInPlace", "dev tun0\nserver-ipv6 2001:db8::/64\nport 1194\n",
                               "dev tun0\nserver-ipv6 2001:db8:1::/64\nport 1194\n"},
                      LineCase{"EqualsAndTabAndLineEnd", "server-ipv6=x\n\tserver-ipv6\ty\nserver-ipv6\n",
                               "server-ipv6 2001:db8:1::/64\nserver-ipv6 2001:db8:1::/64\nserver-ipv6 2001:db8:1::/64\n"},
                      LineCase{"OtherWordsKept", "server-ipv6-x y\n#server-ipv6 y\nroute server-ipv6\n",
                               "server-ipv6-x y\n#server-ipv6 y\nroute server-ipv6\nserver-ipv6 2001:db8:1::/64\n"},
                      LineCase{"AppendedAfterUnendedLine", "port 1194", "port 1194\nserver-ipv6 2001:db8:1::/64\n"},
                      LineCase{"AppendedToEmpty", "", "server-ipv6 2001:db8:1::/64\n"},
                      LineCase{"UnendedLastLineStaysUnended", "port 1194\nserver-ipv6 x",
                               "port 1194\nserver-ipv6 2001:db8:1::/64"},
                      LineCase{"BlankLinesKept", "\n\nserver-ipv6 x\n\n", "\n\nserver-ipv6 2001:db8:1::/64\n\n"}),
    [](const ::testing::TestParamInfo<LineCase>& info) { return std::string(info.param.name); });

class KeyValueFile : public ::testing::Test {
protected:
    void SetUp() override {
        std::string pattern = (fs::temp_directory_path() / "tarnkv-XXXXXX").string();
        ASSERT_NE(mkdtemp(pattern.data()), nullptr);
        dir_ = pattern;
        path_ = (dir_ / "openvpn.conf").string();
        std::ofstream(path_) << "dev tun0\nserver-ipv6 2001:db8::/64\nkey=\"0123456789\"\n";
    }
    void TearDown() override { fs::remove_all(dir_); }
    std::string Content() const {
        std::ifstream in(path_);
        std::ostringstream text;
        text << in.rdbuf();
        return text.str();
    }
    fs::path dir_;
    std::string path_;
};

TEST_F(KeyValueFile, ValueFitsOrFails) {
    char buf[16];
    EXPECT_EQ(TLIBCFileGetKeyValue(path_.c_str(), "key", buf, sizeof buf, 0), 11);
    EXPECT_STREQ(buf, "0123456789");
    EXPECT_EQ(TLIBCFileGetKeyValue(path_.c_str(), "key", buf, 10, 0), -1);
    EXPECT_STREQ(buf, "");
    EXPECT_EQ(TLIBCFileGetKeyValue(path_.c_str(), "nokey", buf, sizeof buf, 0), 0);
    EXPECT_LT(TLIBCFileGetKeyValue((dir_ / "missing").c_str(), "key", buf, sizeof buf, 0), 0);
    EXPECT_LT(TLIBCFileGetKeyValue(dir_.c_str(), "key", buf, sizeof buf, 0), 0);
}

TEST_F(KeyValueFile, RewriteKeepsModeAndLinkAndRefusalsChangeNothing) {
    ASSERT_EQ(chmod(path_.c_str(), 0640), 0);
    fs::create_symlink(path_, dir_ / "link.conf");
    EXPECT_EQ(TLIBCFileSetLine((dir_ / "link.conf").c_str(), "server-ipv6", "server-ipv6 2001:db8:1::/64", 0), 1);
    std::string after = "dev tun0\nserver-ipv6 2001:db8:1::/64\nkey=\"0123456789\"\n";
    EXPECT_EQ(Content(), after);
    struct stat info;
    ASSERT_EQ(stat(path_.c_str(), &info), 0);
    EXPECT_EQ(info.st_mode & 07777, 0640u);
    EXPECT_TRUE(fs::is_symlink(dir_ / "link.conf"));

    EXPECT_LE(TLIBCFileSetLine(path_.c_str(), "server-ipv6", "server-ipv6 a\nport 1", 0), 0);
    EXPECT_LE(TLIBCFileSetLine(path_.c_str(), "", "server-ipv6 a", 0), 0);
    EXPECT_LE(TLIBCFileSetLine((dir_ / "missing.conf").c_str(), "server-ipv6", "server-ipv6 a", 0), 0);
    EXPECT_EQ(Content(), after);
    EXPECT_EQ(std::distance(fs::directory_iterator(dir_), fs::directory_iterator()), 2);
}

}  // namespace

// Key/value files: lookups, line rewrites, and what a rewrite keeps of the file.
#include "blackbox/tempdir.h"
#include "keyvalue.h"
#include "tarncore.h"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>

namespace {

namespace fs = std::filesystem;

TEST(KeyValue, ValueOfKey) {
    const std::pair<const char*, std::optional<std::string>> cases[] = {
        {"a=1\novpn_enable_ipv6=yes\n", "yes"},
        {"ovpn_enable_ipv6=\"a\"b\"\n", "a\"b"},
        {"ovpn_enable_ipv6=\"\n", "\""},
        {"ovpn_enable_ipv6=no\novpn_enable_ipv6=yes\n", "no"},
        {"#ovpn_enable_ipv6=no\n  # ovpn_enable_ipv6=no\novpn_enable_ipv6=yes", "yes"},
        {"\n\n  ovpn_enable_ipv6 = \"yes\" \r\n", "yes"},
        {"ovpn_enable_ipv6=\n", ""},
        {"ovpn_enable_ipv6=a=b\n", "a=b"},
        {"ovpn_enable_ipv6_x=yes\nx_ovpn_enable_ipv6=yes\n", std::nullopt},
        {"ovpn_enable_ipv6 yes\n", std::nullopt},
        {"OVPN_ENABLE_IPV6=yes\n", std::nullopt},
        {"", std::nullopt},
    };
    for (const auto& [text, value] : cases) EXPECT_EQ(tarnlinux::ValueOf(text, "ovpn_enable_ipv6"), value) << text;
}

TEST(KeyValue, WithLine) {
    const std::pair<const char*, const char*> cases[] = {
        {"server-ipv6=x\n\tserver-ipv6\ty\nserver-ipv6\n", "server-ipv6 new\nserver-ipv6 new\nserver-ipv6 new\n"},
        {"server-ipv6-x y\n#server-ipv6 y\nroute server-ipv6\n",
         "server-ipv6-x y\n#server-ipv6 y\nroute server-ipv6\nserver-ipv6 new\n"},
        {"port 1194", "port 1194\nserver-ipv6 new\n"},
        {"", "server-ipv6 new\n"},
        {"port 1194\nserver-ipv6 x", "port 1194\nserver-ipv6 new"},
        {"\n\nserver-ipv6 x\n\n", "\n\nserver-ipv6 new\n\n"},
    };
    for (const auto& [before, after] : cases)
        EXPECT_EQ(tarnlinux::WithLine(before, "server-ipv6", "server-ipv6 new"), after) << before;
}

class KeyValueFile : public ::testing::Test {
protected:
    void SetUp() override { std::ofstream(path_) << "dev tun0\nserver-ipv6 2001:db8::/64\nkey=\"0123456789\"\n"; }
    blackbox::TempDir tmp_;
    fs::path dir_{tmp_.Path()};
    std::string path_{(dir_ / "openvpn.conf").string()};
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
    std::ofstream(path_, std::ios::app) << std::string(2 << 20, '#');
    EXPECT_LT(TLIBCFileGetKeyValue(path_.c_str(), "key", buf, sizeof buf, 0), 0);
}

// A rewrite replaces the file (a reader sees the old one or the new one, never a mix), keeps its
// mode, owner and the link to it; refusals change nothing.
TEST_F(KeyValueFile, RewriteReplacesKeepingModeOwnerAndLinkAndRefusalsChangeNothing) {
    ASSERT_EQ(chmod(path_.c_str(), 0640), 0);
    ASSERT_TRUE(geteuid() != 0 || chown(path_.c_str(), 1234, 5678) == 0);  // only root gives a file away
    struct stat before, info;
    ASSERT_EQ(stat(path_.c_str(), &before), 0);
    fs::create_symlink(path_, dir_ / "link.conf");
    EXPECT_EQ(TLIBCFileSetLine((dir_ / "link.conf").c_str(), "server-ipv6", "server-ipv6 2001:db8:1::/64", 0), 1);
    std::string after = "dev tun0\nserver-ipv6 2001:db8:1::/64\nkey=\"0123456789\"\n";
    EXPECT_EQ(blackbox::ReadFile(path_), after);
    ASSERT_EQ(stat(path_.c_str(), &info), 0);
    EXPECT_NE(info.st_ino, before.st_ino) << "written in place";
    EXPECT_EQ(info.st_mode & 07777, 0640u);
    EXPECT_EQ(std::pair(info.st_uid, info.st_gid), std::pair(before.st_uid, before.st_gid));
    EXPECT_TRUE(fs::is_symlink(dir_ / "link.conf"));

    EXPECT_LE(TLIBCFileSetLine(path_.c_str(), "server-ipv6", "server-ipv6 a\nport 1", 0), 0);
    EXPECT_LE(TLIBCFileSetLine(path_.c_str(), "", "server-ipv6 a", 0), 0);
    EXPECT_LE(TLIBCFileSetLine((dir_ / "missing.conf").c_str(), "server-ipv6", "server-ipv6 a", 0), 0);
    EXPECT_EQ(blackbox::ReadFile(path_), after);
    EXPECT_EQ(std::distance(fs::directory_iterator(dir_), fs::directory_iterator()), 2);
}

}  // namespace

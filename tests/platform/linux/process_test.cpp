// Programs started without a shell: arguments arrive as given, results follow the exit status.
#include "tarncore.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>

namespace {

constexpr char kPrintf[] = "/usr/bin/printf";

std::string ReadAll(FILE* stream) {
    std::string text;
    char line[256];
    while (std::fgets(line, sizeof line, stream) != nullptr) text += line;
    return text;
}

class Popen : public ::testing::TestWithParam<const char*> {};

// Each word would be split, expanded or run by a shell.
TEST_P(Popen, WordArrivesVerbatim) {
    FILE* stream = TLIBCPopen(kPrintf, "r", "[%s]\n", GetParam(), "second word", nullptr);
    ASSERT_NE(stream, nullptr);
    EXPECT_EQ(ReadAll(stream), std::string("[") + GetParam() + "]\n[second word]\n");
    EXPECT_EQ(TLIBCPclose(stream), 0);
}

INSTANTIATE_TEST_SUITE_P(Cases, Popen, ::testing::Values("eth0; true", "$(id -u)", "`id`", "*", "a  b\tc", "'\"\\", ""));

TEST(PopenStream, WriteModeFeedsTheProgramAndFailuresAreNull) {
    std::filesystem::path out = std::filesystem::temp_directory_path() / ("tarnpopen-" + std::to_string(getpid()));
    FILE* stream = TLIBCPopen("/bin/dd", "w", ("of=" + out.string()).c_str(), "status=none", nullptr);
    ASSERT_NE(stream, nullptr);
    std::fputs("line one\n", stream);
    EXPECT_EQ(TLIBCPclose(stream), 0);
    std::ifstream in(out);
    std::ostringstream text;
    text << in.rdbuf();
    EXPECT_EQ(text.str(), "line one\n");
    std::filesystem::remove(out);

    EXPECT_EQ(TLIBCPopen("/nonexistent/ifconfig", "r", "eth0", nullptr), nullptr);
    EXPECT_EQ(TLIBCPopen(kPrintf, "rw", "x", nullptr), nullptr);
    EXPECT_EQ(TLIBCPopen("printf", "r", "x", nullptr), nullptr);  // a path, never a search
    stream = TLIBCPopen("/bin/false", "r", nullptr);
    ASSERT_NE(stream, nullptr);
    EXPECT_EQ(TLIBCPclose(stream), 1);
    EXPECT_EQ(TLIBCPclose(stdin), -1);
}

struct ExecCase {
    const char* path;
    const char* args[4];  // the first null ends them
    int result;
};

void PrintTo(const ExecCase& c, std::ostream* os) { *os << c.path << ' ' << (c.args[0] ? c.args[0] : ""); }

class Exec : public ::testing::TestWithParam<ExecCase> {};

TEST_P(Exec, Result) {
    const char* const* a = GetParam().args;
    EXPECT_EQ(TLIBCExec(GetParam().path, a[0], a[1], a[2], a[3], nullptr), GetParam().result);
}

INSTANTIATE_TEST_SUITE_P(Cases, Exec,
                         ::testing::Values(ExecCase{"/bin/true", {}, 0}, ExecCase{"/bin/false", {}, -1},
                                           ExecCase{"/nonexistent/openvpn.sh", {"restart"}, -1},
                                           ExecCase{"/usr/bin/test", {"eth0; false", "=", "eth0; false"}, 0},
                                           ExecCase{"/usr/bin/test", {"a b", "=", "a"}, -1},
                                           ExecCase{"/bin/sh", {"-c", "kill -TERM $$"}, -1},
                                           ExecCase{"/bin/sh", {"-c", "test \"$(readlink /proc/$$/fd/1)\" = /dev/null"}, 0}));

}  // namespace

#include "blackbox/harness.h"

namespace {

using blackbox::Case;

const char* const kNoConfig = R"(
    {"op":"Router6Attr.Router6Attr"}
    {"op":"Router6Attr.LoadConfig","result":-1}
    {"op":"Router6Attr.~Router6Attr"})";

std::string WithType(const char* type) {
    return std::string(R"({"router6": {"eth1": {"type": ")") + type + R"(", "prefix": "2001:db8::/56"}}})";
}

class RouterInterface : public ::testing::TestWithParam<Case> {};

TEST_P(RouterInterface, Row) { blackbox::Check(GetParam()); }

INSTANTIATE_TEST_SUITE_P(
    Rows, RouterInterface,
    ::testing::Values(
        Case{"SixToFour",
             {"--get-ipv6-router-interface", "eth1"},
             WithType("6to4"),
             "6in4-eth1\n",
             "",
             0,
             "",
             blackbox::Journal::Ignore},
        Case{"SixInFour",
             {"--get-ipv6-router-interface", "eth1"},
             WithType("6in4"),
             "6in4-eth1\n",
             "",
             0,
             "",
             blackbox::Journal::Ignore},
        Case{"Native",
             {"--get-ipv6-router-interface", "eth1"},
             WithType("native"),
             "eth1\n",
             "",
             0,
             "",
             blackbox::Journal::Ignore},
        Case{"CaseMatters",
             {"--get-ipv6-router-interface", "eth1"},
             WithType("6IN4"),
             "eth1\n",
             "",
             0,
             "",
             blackbox::Journal::Ignore},
        Case{"EmptyType", {"--get-ipv6-router-interface", "eth1"}, WithType(""), "eth1\n", "", 0, "", blackbox::Journal::Ignore},
        Case{"NoConfig", {"--get-ipv6-router-interface", "eth1"}, "", "eth1\n", "", 0, kNoConfig},
        Case{"NoInterface", {"--get-ipv6-router-interface"}, "", "", "", 255, ""},
        Case{"TwoInterfaces", {"--get-ipv6-router-interface", "eth1", "eth2"}, "", "", "", 255, ""}),
    blackbox::CaseName());

const char* const kNetworks = R"({"networks": {
    "ipv4": {"lbr0": [["192.168.1.0", 24], ["198.51.100.0", 24]], "gbr0": [["10.0.0.0", 8], ["192.168.1.0", 24]]},
    "ipv6": {"lbr0": [["fd00:1::", 64]], "gbr0": [["2001:db8:1::", 64], ["fd00:1::", 64]]}}})";

class InternalNetwork : public ::testing::TestWithParam<Case> {};

TEST_P(InternalNetwork, Row) { blackbox::Check(GetParam()); }

INSTANTIATE_TEST_SUITE_P(
    Rows, InternalNetwork,
    ::testing::Values(Case{"SortedOnceAcrossFamilies",
                           {"--get-internal-network"},
                           kNetworks,
                           "10.0.0.0/8\n192.168.1.0/24\n198.51.100.0/24\n2001:db8:1::/64\nfd00:1::/64\n",
                           "",
                           0,
                           R"(
                 {"op":"IPAddress.GetIPv4Network","args":["lbr0"],"result":[["192.168.1.0",24],["198.51.100.0",24]]}
                 {"op":"IPAddress.GetIPv4Network","args":["gbr0"],"result":[["10.0.0.0",8],["192.168.1.0",24]]}
                 {"op":"IPAddress.GetIPv6Network","args":["lbr0"],"result":[["fd00:1::",64]]}
                 {"op":"IPAddress.GetIPv6Network","args":["gbr0"],"result":[["2001:db8:1::",64],["fd00:1::",64]]})"},
                      Case{"Nothing", {"--get-internal-network", "extra"}, "", "", "", 0, R"(
                 {"op":"IPAddress.GetIPv4Network","args":["lbr0"],"result":[]}
                 {"op":"IPAddress.GetIPv4Network","args":["gbr0"],"result":[]}
                 {"op":"IPAddress.GetIPv6Network","args":["lbr0"],"result":[]}
                 {"op":"IPAddress.GetIPv6Network","args":["gbr0"],"result":[]})"},
                      Case{"NegativeLengthPlainDecimal",
                           {"--get-internal-network"},
                           R"({"results": {"IPAddress.GetIPv4Network": [[["192.0.2.0", -1]], [["192.0.2.0", 1000000]]]}})",
                           "192.0.2.0/-1\n192.0.2.0/1000000\n",
                           "",
                           0,
                           "",
                           blackbox::Journal::Ignore}),
    blackbox::CaseName());

}  // namespace

#include "blackbox/harness.h"

namespace {

using blackbox::Case;

class GenDuid : public ::testing::TestWithParam<Case> {};

TEST_P(GenDuid, Row) { blackbox::Check(GetParam()); }

INSTANTIATE_TEST_SUITE_P(Rows, GenDuid,
                         ::testing::Values(Case{"Default", {"--gen-DUID"}, "", "00:03:00:01:02:00:00:00:00:01\n", "", 0, R"(
                               {"op":"GenDUID","result":"00:03:00:01:02:00:00:00:00:01"})"},
                                           Case{"ArgumentsIgnored",
                                                {"--gen-DUID", "-6", "eth0"},
                                                R"({"duid": "00:03:00:01:02:42:c0:a8:00:02"})",
                                                "00:03:00:01:02:42:c0:a8:00:02\n",
                                                "",
                                                0,
                                                R"({"op":"GenDUID","result":"00:03:00:01:02:42:c0:a8:00:02"})"},
                                           Case{"EmptyIsFailureWithoutLineEnd",
                                                {"--gen-DUID"},
                                                R"({"duid": ""})",
                                                "",
                                                "Failed to generate DUID",
                                                255,
                                                R"({"op":"GenDUID","result":""})"}),
                         blackbox::CaseName());

}  // namespace

// Strict JSON: what every document and request of ours must be.
#include "hostkit/json.h"

#include <gtest/gtest.h>

namespace {

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

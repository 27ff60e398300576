#include "hostkit/json.h"

#include <json/reader.h>

#include <memory>

namespace tarnlinux {
namespace {

// JsonCpp skips a comment after a value even with comments off, so any '/' outside a string
// (where JSON has none) is refused before it parses.
bool SlashOutsideStrings(const std::string& text) {
    bool inString = false;
    for (size_t i = 0; i < text.size(); ++i) {
        char c = text[i];
        if (inString && c == '\\')
            ++i;
        else if (c == '"')
            inString = !inString;
        else if (!inString && c == '/')
            return true;
    }
    return false;
}

}  // namespace

bool ParseStrictJson(const std::string& text, Json::Value& value, std::string* why) {
    Json::CharReaderBuilder builder;
    Json::CharReaderBuilder::strictMode(&builder.settings_);
    builder["skipBom"] = false;
    std::unique_ptr<Json::CharReader> reader(builder.newCharReader());
    std::string errors = "a comment";
    // Past the nesting bound the reader throws rather than answers.
    bool parsed = false;
    try {
        parsed = !SlashOutsideStrings(text) && reader->parse(text.data(), text.data() + text.size(), &value, &errors);
    } catch (const Json::Exception& error) {
        errors = error.what();
    }
    if (why != nullptr) *why = errors.substr(0, errors.find('\n'));
    return parsed;
}

}  // namespace tarnlinux

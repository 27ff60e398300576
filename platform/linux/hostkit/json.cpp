#include "hostkit/json.h"

#include <json/reader.h>

#include <memory>

namespace tarnlinux {

bool ParseStrictJson(const std::string& text, Json::Value& value, std::string* why) {
    Json::CharReaderBuilder builder;
    Json::CharReaderBuilder::strictMode(&builder.settings_);
    std::unique_ptr<Json::CharReader> reader(builder.newCharReader());
    std::string errors;
    bool parsed = reader->parse(text.data(), text.data() + text.size(), &value, &errors);
    if (why != nullptr) *why = errors.substr(0, errors.find('\n'));
    return parsed;
}

}  // namespace tarnlinux

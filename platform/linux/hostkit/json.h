// Strict JSON for every document and request we read: no comments, one root, no duplicate
// members, nesting bounded.
#ifndef TARN_HOSTKIT_JSON_H
#define TARN_HOSTKIT_JSON_H

#include <json/value.h>

#include <string>

namespace tarnlinux {

// False, with the parser's first line of complaint in `why` when given, unless `text` is one
// JSON value and nothing else.
bool ParseStrictJson(const std::string& text, Json::Value& value, std::string* why = nullptr);

}  // namespace tarnlinux

#endif

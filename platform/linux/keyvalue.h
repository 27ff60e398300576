// The text rules of the core library's key/value files.
#ifndef TARN_PLATFORM_LINUX_KEYVALUE_H
#define TARN_PLATFORM_LINUX_KEYVALUE_H

#include <optional>
#include <string>

namespace tarnlinux {

// The value of the first `key=value` line of a key/value file's text, quotes removed.
std::optional<std::string> ValueOf(const std::string& text, const std::string& key);
// `text` with every line whose first word is `key` replaced by `line`, or `line` appended.
std::string WithLine(const std::string& text, const std::string& key, const std::string& line);

}  // namespace tarnlinux

#endif

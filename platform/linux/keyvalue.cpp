// Core library on Linux: key/value files, read and rewritten in place of the old one.
#include "hostkit/atomicfile.h"
#include "hostkit/fd.h"
#include "keyvalue.h"
#include "tarncore.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <climits>
#include <cstdlib>
#include <cstring>

namespace tarnlinux {
namespace {

constexpr char kBlanks[] = " \t\r";

std::string Trim(const std::string& text) {
    size_t first = text.find_first_not_of(kBlanks);
    if (first == std::string::npos) return "";
    return text.substr(first, text.find_last_not_of(kBlanks) - first + 1);
}

// True when the line's first word is `key`: after leading blanks, the key and then a blank,
// "=" or the end of the line.
bool FirstWordIs(const std::string& line, const std::string& key) {
    size_t start = line.find_first_not_of(" \t");
    if (start == std::string::npos || line.compare(start, key.size(), key) != 0) return false;
    size_t after = start + key.size();
    if (after == line.size()) return true;
    char next = line[after];
    return next == '=' || next == ' ' || next == '\t' || next == '\r';
}

}  // namespace

std::optional<std::string> ValueOf(const std::string& text, const std::string& key) {
    for (size_t start = 0; start < text.size();) {
        size_t end = text.find('\n', start);
        if (end == std::string::npos) end = text.size();
        std::string line = Trim(text.substr(start, end - start));
        start = end + 1;
        size_t equals = line.find('=');
        if (line.empty() || line[0] == '#' || equals == std::string::npos) continue;
        if (Trim(line.substr(0, equals)) != key) continue;
        std::string value = Trim(line.substr(equals + 1));
        if (value.size() >= 2 && value.front() == '"' && value.back() == '"') value = value.substr(1, value.size() - 2);
        return value;
    }
    return std::nullopt;
}

std::string WithLine(const std::string& text, const std::string& key, const std::string& line) {
    std::string out;
    bool replaced = false;
    for (size_t start = 0; start < text.size();) {
        size_t end = text.find('\n', start);
        bool ended = end != std::string::npos;
        if (!ended) end = text.size();
        std::string current = text.substr(start, end - start);
        bool match = FirstWordIs(current, key);
        replaced = replaced || match;
        out += match ? line : current;
        if (ended) out += '\n';
        start = end + 1;
    }
    if (replaced) return out;
    if (!out.empty() && out.back() != '\n') out += '\n';
    return out + line + "\n";
}

}  // namespace tarnlinux

namespace {

// A configuration of a few lines; anything far larger is not one.
constexpr size_t kMaxFileBytes = 1 << 20;

// Opening does not wait for a FIFO's writer; only a regular file is read.
bool ReadFile(const char* path, std::string& text, struct stat* info) {
    tarnlinux::Fd fd(open(path, O_RDONLY | O_NONBLOCK | O_CLOEXEC));
    if (fd.Get() < 0 || fstat(fd.Get(), info) != 0 || !S_ISREG(info->st_mode)) return false;
    return tarnlinux::ReadAll(fd.Get(), text, kMaxFileBytes);
}

// The file behind `path` (a symbolic link stays a link to the rewritten file).
bool RealPath(const char* path, std::string& real) {
    char resolved[PATH_MAX];
    if (realpath(path, resolved) == nullptr) return false;
    real = resolved;
    return true;
}

}  // namespace

extern "C" {

int TLIBCFileGetKeyValue(const char* path, const char* key, char* buf, int size, int) {
    if (path == nullptr || key == nullptr || buf == nullptr || size <= 0) return -1;
    buf[0] = '\0';
    std::string text;
    struct stat info;
    if (!ReadFile(path, text, &info)) return -1;
    std::optional<std::string> value = tarnlinux::ValueOf(text, key);
    if (!value) return 0;
    // A value cut to fit would be a different value.
    if (value->size() >= static_cast<size_t>(size)) return -1;
    std::memcpy(buf, value->c_str(), value->size() + 1);
    return static_cast<int>(value->size()) + 1;
}

int TLIBCFileSetLine(const char* path, const char* key, const char* line, int) {
    if (path == nullptr || key == nullptr || line == nullptr || *key == '\0' || std::strchr(line, '\n') != nullptr) return -1;
    std::string target;
    std::string text;
    struct stat info;
    if (!RealPath(path, target) || !ReadFile(target.c_str(), text, &info)) return -1;
    std::string updated = tarnlinux::WithLine(text, key, line);
    if (updated == text) return 1;
    // The rewritten file keeps the old one's mode and owner.
    tarnlinux::NewFile like{static_cast<mode_t>(info.st_mode & 07777), info.st_uid, info.st_gid};
    return tarnlinux::ReplaceFile(target, updated, like) ? 1 : -1;
}

}  // extern "C"

// Core library on Linux: key/value files, read and rewritten in place of the old one.
#include "linux/linux.h"
#include "tarncore.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <cerrno>
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

bool ReadAll(int fd, std::string& text) {
    char chunk[8192];
    for (;;) {
        ssize_t got = read(fd, chunk, sizeof chunk);
        if (got < 0 && errno == EINTR) continue;
        if (got < 0) return false;
        if (got == 0) return true;
        text.append(chunk, static_cast<size_t>(got));
    }
}

bool WriteAll(int fd, const std::string& text) {
    for (size_t done = 0; done < text.size();) {
        ssize_t put = write(fd, text.data() + done, text.size() - done);
        if (put < 0 && errno == EINTR) continue;
        if (put <= 0) return false;
        done += static_cast<size_t>(put);
    }
    return true;
}

// Opening does not wait for a FIFO's writer; only a regular file is read.
bool ReadFile(const char* path, std::string& text, struct stat* info) {
    tarnlinux::Fd fd(open(path, O_RDONLY | O_NONBLOCK | O_CLOEXEC));
    if (fd.Get() < 0 || fstat(fd.Get(), info) != 0 || !S_ISREG(info->st_mode)) return false;
    return ReadAll(fd.Get(), text);
}

// A temporary file beside its target, removed unless it was renamed over the target.
class TempFile {
public:
    explicit TempFile(const std::string& target) {
        size_t slash = target.rfind('/');
        dir_ = target.substr(0, slash + 1);
        path_ = dir_ + "." + target.substr(slash + 1) + ".XXXXXX";
        fd_.Reset(mkostemp(&path_[0], O_CLOEXEC));
    }
    ~TempFile() {
        if (!renamed_ && fd_.Get() >= 0) unlink(path_.c_str());
    }
    TempFile(const TempFile&) = delete;
    TempFile& operator=(const TempFile&) = delete;

    // Writes `text` with the target's mode and owner, makes it durable, and renames it over
    // the target, so that a reader sees the old file or the new one and nothing between.
    bool Commit(const std::string& text, const struct stat& like, const std::string& target) {
        if (fd_.Get() < 0 || !WriteAll(fd_.Get(), text)) return false;
        if (fchmod(fd_.Get(), like.st_mode & 07777) != 0 || fchown(fd_.Get(), like.st_uid, like.st_gid) != 0) return false;
        if (fsync(fd_.Get()) != 0 || close(fd_.Release()) != 0) return false;
        if (rename(path_.c_str(), target.c_str()) != 0) return false;
        renamed_ = true;
        // The new content is in place; syncing the directory only hastens the rename to disk.
        tarnlinux::Fd dir(open(dir_.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
        if (dir.Get() >= 0) fsync(dir.Get());
        return true;
    }

private:
    std::string dir_;
    std::string path_;
    tarnlinux::Fd fd_;
    bool renamed_ = false;
};

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
    TempFile temp(target);
    return temp.Commit(updated, info, target) ? 1 : -1;
}

}  // extern "C"

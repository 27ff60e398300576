#include "store.h"

#include "linux/linux.h"

#include <dirent.h>
#include <fcntl.h>
#include <json/writer.h>
#include <sys/stat.h>
#include <syslog.h>

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <cstring>
#include <ctime>
#include <memory>

namespace tarnnetd {
namespace {

// Far above any real set of records; a larger file is not ours.
constexpr off_t kMaxFileBytes = 4 * 1024 * 1024;
constexpr mode_t kFileMode = 0644;
constexpr mode_t kDirMode = 0755;
constexpr size_t kTempSuffix = 6;

bool Fail(std::string& error, const std::string& reason) {
    error = reason;
    return false;
}

std::string SystemError(const std::string& what) { return what + ": " + std::strerror(errno); }

std::string Directory(const std::string& path) {
    size_t slash = path.rfind('/');
    if (slash == std::string::npos) return ".";
    return slash == 0 ? "/" : path.substr(0, slash);
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

// Reads a regular file of bounded size without following a link; false with a reason.
enum class ReadResult { kRead, kMissing, kUnreadable };
ReadResult ReadRegular(const std::string& path, std::string& text, std::string& reason) {
    tarnlinux::Fd fd(open(path.c_str(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC));
    if (fd.Get() < 0 && errno == ENOENT) return ReadResult::kMissing;
    struct stat info;
    if (fd.Get() < 0 || fstat(fd.Get(), &info) != 0) {
        reason = SystemError("cannot open");
        return ReadResult::kUnreadable;
    }
    if (!S_ISREG(info.st_mode) || info.st_size > kMaxFileBytes) {
        reason = "not a regular file of at most 4 MiB";
        return ReadResult::kUnreadable;
    }
    char chunk[8192];
    for (;;) {
        ssize_t got = read(fd.Get(), chunk, sizeof chunk);
        if (got < 0 && errno == EINTR) continue;
        if (got == 0) return ReadResult::kRead;
        if (got < 0 || text.size() + static_cast<size_t>(got) > static_cast<size_t>(kMaxFileBytes)) {
            reason = "read failed";
            return ReadResult::kUnreadable;
        }
        text.append(chunk, static_cast<size_t>(got));
    }
}

// mkostemp's suffix: six letters or digits.
bool IsTemporaryOf(const std::string& name, const std::string& base) {
    if (name.size() != base.size() + 1 + kTempSuffix || name.compare(0, base.size() + 1, base + ".") != 0) return false;
    return std::all_of(name.end() - kTempSuffix, name.end(), [](char c) { return std::isalnum(static_cast<unsigned char>(c)); });
}

// Temporary files of writes that a kill cut short; nobody else writes beside the record file.
void RemoveLeftovers(const std::string& path) {
    std::string dir = Directory(path);
    std::string base = path.substr(path.rfind('/') + 1);
    std::unique_ptr<DIR, int (*)(DIR*)> listing(opendir(dir.c_str()), closedir);
    if (!listing) return;
    while (dirent* entry = readdir(listing.get()))
        if (IsTemporaryOf(entry->d_name, base)) unlinkat(dirfd(listing.get()), entry->d_name, 0);
}

bool MakeDirectory(const std::string& dir, std::string& error) {
    if (mkdir(dir.c_str(), kDirMode) == 0 || errno == EEXIST) return true;
    return Fail(error, SystemError("cannot make " + dir));
}

}  // namespace

bool LoadRecords(const std::string& path, Records& records, std::string& error) {
    records = Records();
    RemoveLeftovers(path);
    std::string text;
    std::string reason;
    ReadResult result = ReadRegular(path, text, reason);
    if (result == ReadResult::kMissing) return true;
    Json::Value document;
    if (result == ReadResult::kRead) {
        if (!ParseStrictJson(text, document))
            reason = "not JSON text";
        else if (FromDocument(document, records, reason))
            return true;
    }
    std::string aside = path + ".unreadable-" + std::to_string(std::time(nullptr));
    if (rename(path.c_str(), aside.c_str()) != 0) return Fail(error, SystemError(path + " (" + reason + ") not moved aside"));
    syslog(LOG_ERR, "%s: %s; moved to %s, starting without records", path.c_str(), reason.c_str(), aside.c_str());
    return true;
}

bool SaveRecords(const std::string& path, const Records& records, std::string& error) {
    Json::StreamWriterBuilder builder;
    builder["indentation"] = "  ";
    return WriteAtomically(path, Json::writeString(builder, ToDocument(records)) + "\n", error);
}

bool WriteAtomically(const std::string& path, const std::string& text, std::string& error) {
    std::string dir = Directory(path);
    if (!MakeDirectory(dir, error)) return false;
    std::string temp = path + ".XXXXXX";
    tarnlinux::Fd fd(mkostemp(&temp[0], O_CLOEXEC));
    if (fd.Get() < 0) return Fail(error, SystemError("cannot create a file beside " + path));
    bool written = WriteAll(fd.Get(), text) && fchmod(fd.Get(), kFileMode) == 0 && fsync(fd.Get()) == 0 &&
                   close(fd.Release()) == 0 && rename(temp.c_str(), path.c_str()) == 0;
    if (!written) {
        error = SystemError("cannot replace " + path);
        unlink(temp.c_str());
        return false;
    }
    // The new file is in place; syncing the directory makes the rename itself durable.
    tarnlinux::Fd dirFd(open(dir.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (dirFd.Get() < 0 || fsync(dirFd.Get()) != 0) return Fail(error, SystemError("cannot sync " + dir));
    return true;
}

}  // namespace tarnnetd

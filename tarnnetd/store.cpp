#include "store.h"

#include "hostkit/atomicfile.h"
#include "hostkit/json.h"

#include <dirent.h>
#include <fcntl.h>
#include <json/writer.h>
#include <syslog.h>
#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <cstring>
#include <ctime>
#include <memory>

namespace tarnnetd {
namespace {

constexpr size_t kTempSuffix = 6;

bool Fail(std::string& error, const std::string& reason) {
    error = reason;
    return false;
}

std::string SystemError(const std::string& what) { return what + ": " + std::strerror(errno); }

// mkostemp's suffix: six letters or digits.
bool IsTemporaryOf(const std::string& name, const std::string& base) {
    if (name.size() != base.size() + 1 + kTempSuffix || name.compare(0, base.size() + 1, base + ".") != 0) return false;
    return std::all_of(name.end() - kTempSuffix, name.end(), [](char c) { return std::isalnum(static_cast<unsigned char>(c)); });
}

}  // namespace

// Nobody else writes beside the record file.
void RemoveLeftovers(const std::string& path) {
    std::string dir = tarnlinux::DirectoryOf(path);
    std::string base = path.substr(path.rfind('/') + 1);
    std::unique_ptr<DIR, int (*)(DIR*)> listing(opendir(dir.c_str()), closedir);
    if (!listing) return;
    while (dirent* entry = readdir(listing.get()))
        if (IsTemporaryOf(entry->d_name, base)) unlinkat(dirfd(listing.get()), entry->d_name, 0);
}

bool LoadRecords(const std::string& path, Records& records, std::string& error) {
    records = Records();
    std::string text;
    std::string reason;
    tarnlinux::ReadResult result = tarnlinux::ReadRegular(path, text, kMaxRecordFileBytes);
    if (result == tarnlinux::ReadResult::kMissing) return true;
    Json::Value document;
    if (result == tarnlinux::ReadResult::kRefused)
        reason = errno == EINVAL || errno == EFBIG ? "not a regular file of at most 4 MiB" : SystemError("cannot read");
    else if (!tarnlinux::ParseStrictJson(text, document))
        reason = "not JSON text";
    else if (FromDocument(document, records, reason))
        return true;
    std::string aside = path + ".unreadable-" + std::to_string(std::time(nullptr));
    if (rename(path.c_str(), aside.c_str()) != 0) return Fail(error, SystemError(path + " (" + reason + ") not moved aside"));
    syslog(LOG_ERR, "%s: %s; moved to %s, starting without records", path.c_str(), reason.c_str(), aside.c_str());
    return true;
}

bool SaveRecords(const std::string& path, const Records& records, std::string& error) {
    Json::StreamWriterBuilder builder;
    builder["indentation"] = "  ";
    // Visible temporary names: a start removes those that a kill left.
    tarnlinux::NewFile file;
    file.hidden = false;
    std::string text = Json::writeString(builder, ToDocument(records)) + "\n";
    if (text.size() > kMaxRecordFileBytes) return Fail(error, "the records would exceed 4 MiB");
    if (tarnlinux::ReplaceFile(path, text, file)) return true;
    return Fail(error, SystemError("cannot replace " + path));
}

}  // namespace tarnnetd

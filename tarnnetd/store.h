// The record file: read once at start, rewritten atomically on every change.
#ifndef TARNNETD_STORE_H
#define TARNNETD_STORE_H

#include "records.h"

#include <string>

namespace tarnnetd {

// Far above any real set of records; a larger file is not ours, and none is written.
inline constexpr size_t kMaxRecordFileBytes = 4 * 1024 * 1024;

// Reads `path` into `records`. A missing file is an empty set; a file that cannot be read or
// parsed is renamed to "<path>.unreadable-<seconds since the epoch>" and gives an empty set.
// False (with a reason) only when such a file could not be moved aside: then it must not be
// overwritten, so the caller cannot serve.
bool LoadRecords(const std::string& path, Records& records, std::string& error);

// Removes the temporary files of writes that a kill cut short. Only the daemon that owns the
// bus name may: another instance would delete a write in flight.
void RemoveLeftovers(const std::string& path);

// Replaces `path` with the records' document: temporary file in the same directory, fsync,
// rename, fsync of the directory. Makes the directory (0755) when missing. Refuses a document
// larger than the file may be when it is read back.
bool SaveRecords(const std::string& path, const Records& records, std::string& error);

}  // namespace tarnnetd

#endif

// The record file: read once at start, rewritten atomically on every change.
#ifndef TARNNETD_STORE_H
#define TARNNETD_STORE_H

#include "records.h"

#include <string>

namespace tarnnetd {

// Reads `path` into `records`. A missing file is an empty set; a file that cannot be read or
// parsed is renamed to "<path>.unreadable-<seconds since the epoch>" and gives an empty set.
// False (with a reason) only when such a file could not be moved aside: then it must not be
// overwritten, so the caller cannot serve. Temporary files of cut-short writes are removed.
bool LoadRecords(const std::string& path, Records& records, std::string& error);

// Replaces `path` with the records' document: temporary file in the same directory, fsync,
// rename, fsync of the directory. Makes the directory (0755) when missing.
bool SaveRecords(const std::string& path, const Records& records, std::string& error);

}  // namespace tarnnetd

#endif

// Core library (libtarncore): string lists, program streams, key/value files.
// C functions; every pointer result is owned by the caller unless said otherwise.
#ifndef TARN_PLATFORM_TARNCORE_H
#define TARN_PLATFORM_TARNCORE_H

#include <stdint.h>
#include <stdio.h>

#ifdef __cplusplus
extern "C" {
#endif

// A list of NUL-terminated texts kept in one growing block. Callers read nItem directly and
// reach the items only through TLIBCSzListGet; everything after nItem is the library's.
typedef struct TLIBCSzList {
    int32_t cbAlloc;  // bytes of the whole block, this header included
    int32_t nItem;    // number of items
    int32_t nSlot;    // item offsets the block has room for
    int32_t cbText;   // bytes of item text in use
} TLIBCSzList;

// A new empty list of about `size` bytes; NULL when out of memory.
TLIBCSzList* TLIBCSzListAlloc(int size);
// The item at `index` (owned by the list); NULL when the index is outside the list.
const char* TLIBCSzListGet(const TLIBCSzList* list, int index);
// Empties the list, which stays usable. 0, or -1 for a NULL list.
int TLIBCSzListRemoveAll(TLIBCSzList* list);
// Frees the list and its items; NULL is allowed.
void TLIBCSzListFree(TLIBCSzList* list);

// Appends each non-empty piece of `text` between characters of `separators` to *list; may move
// the list. The number of pieces added, or -1 on failure.
int TLIBCStrSep(const char* text, const char* separators, TLIBCSzList** list);
// Replaces occurrences of `from` by `to` in the NUL-terminated `buf` of `size` bytes, in place;
// `max` limits the replacements (0: all). The count replaced, or -1 when the result would not fit
// (the buffer is then unchanged).
int TLIBCStrReplace(char* buf, const char* from, const char* to, int max, int size);

// Starts the program `path` with the arguments that follow (a NULL ends them), no shell, and
// returns a stream of its standard output ("r") or input ("w"); NULL when it cannot be started.
FILE* TLIBCPopen(const char* path, const char* mode, ...);
// Closes a stream of TLIBCPopen and reaps the program: its exit status, or -1.
int TLIBCPclose(FILE* stream);

// Copies the value of `key` from a file of key=value lines into `buf` (surrounding double
// quotes removed). Greater than 0 when found; 0 or less when not found or unreadable.
int TLIBCFileGetKeyValue(const char* path, const char* key, char* buf, int size, int flags);
// Replaces, atomically, the line whose first word is `key` by `line`, appending it when there
// is none. Greater than 0 when done; 0 or less on failure (the file is then unchanged).
int TLIBCFileSetLine(const char* path, const char* key, const char* line, int flags);
// Runs the program `path` with the arguments that follow (a NULL ends them), no shell, and
// waits for it. 0 or more on success; negative when it cannot be run or fails.
int TLIBCExec(const char* path, ...);

// Writes the platform's one-line banner.
void TLIBCBannerPrint(void);

#ifdef __cplusplus
}
#endif

#endif

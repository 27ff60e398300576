// Core library on Linux: the string lists and text helpers (shared with the simulated
// platform), and the banner.
#include "corestr.h"
#include "tarncore.h"

#include <cstdio>

extern "C" {

TLIBCSzList* TLIBCSzListAlloc(int size) { return tarncore::SzListAlloc(size); }

const char* TLIBCSzListGet(const TLIBCSzList* list, int index) { return tarncore::SzListGet(list, index); }

int TLIBCSzListRemoveAll(TLIBCSzList* list) { return tarncore::SzListRemoveAll(list); }

void TLIBCSzListFree(TLIBCSzList* list) { tarncore::SzListFree(list); }

int TLIBCStrSep(const char* text, const char* separators, TLIBCSzList** list) { return tarncore::StrSep(text, separators, list); }

int TLIBCStrReplace(char* buf, const char* from, const char* to, int max, int size) {
    return tarncore::StrReplace(buf, from, to, max, size);
}

void TLIBCBannerPrint(void) {
    std::fputs("tarnnetdtool " TARN_VERSION "\n", stdout);
    std::fflush(stdout);
}

}  // extern "C"

// Pure list and text helpers behind the core library and SDK entry points, shared by the
// Linux and the simulated platform so that both behave alike.
#ifndef TARN_PLATFORM_COMMON_CORESTR_H
#define TARN_PLATFORM_COMMON_CORESTR_H

#include "tarncore.h"

#include <json/value.h>

#include <string>

namespace tarncore {

TLIBCSzList* SzListAlloc(int size);
const char* SzListGet(const TLIBCSzList* list, int index);
// Appends a copy of `text`; may move *list. 0, or -1 when out of memory.
int SzListAdd(TLIBCSzList** list, const char* text);
int SzListRemoveAll(TLIBCSzList* list);
void SzListFree(TLIBCSzList* list);
int StrSep(const char* text, const char* separators, TLIBCSzList** list);
int StrReplace(char* buf, const char* from, const char* to, int max, int size);
int SeperateSubnet(const char* item, char* buf, int size, int* prefixLen);
// Keeps the objects of the array `list` whose "class" is the text `cls`; other JSON kinds
// are left as they are.
void KeepClass(const std::string& cls, Json::Value& list);

}  // namespace tarncore

#endif

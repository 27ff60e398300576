#include "corestr.h"

#include <climits>
#include <cstdlib>
#include <cstring>
#include <new>

namespace tarncore {
namespace {

// Block layout: header | int32_t offset[nSlot] | item text (cbText bytes in use).
constexpr int kHeader = static_cast<int>(sizeof(TLIBCSzList));
constexpr int kMinSlots = 8;

int32_t* Offsets(TLIBCSzList* list) { return reinterpret_cast<int32_t*>(list + 1); }
const int32_t* Offsets(const TLIBCSzList* list) { return reinterpret_cast<const int32_t*>(list + 1); }
char* Text(TLIBCSzList* list) { return reinterpret_cast<char*>(Offsets(list) + list->nSlot); }
const char* Text(const TLIBCSzList* list) { return reinterpret_cast<const char*>(Offsets(list) + list->nSlot); }
int TextRoom(const TLIBCSzList* list) { return list->cbAlloc - kHeader - list->nSlot * 4; }

// Makes room for one more item of `len` bytes (NUL included), moving the block if needed.
bool Reserve(TLIBCSzList** plist, int len) {
    TLIBCSzList* list = *plist;
    if (list->nItem < list->nSlot && list->cbText + len <= TextRoom(list)) return true;
    if (len > INT_MAX / 4 || list->cbAlloc > INT_MAX / 4) return false;
    int slots = list->nItem < list->nSlot ? list->nSlot : list->nSlot * 2;
    int room = TextRoom(list);
    while (room < list->cbText + len) room = room * 2 + len;
    int bytes = kHeader + slots * 4 + room;
    auto* grown = static_cast<TLIBCSzList*>(std::realloc(list, static_cast<size_t>(bytes)));
    if (grown == nullptr) return false;
    char* oldText = Text(grown);
    int oldSlots = grown->nSlot;
    grown->nSlot = slots;
    if (slots != oldSlots) std::memmove(Text(grown), oldText, static_cast<size_t>(grown->cbText));
    grown->cbAlloc = bytes;
    *plist = grown;
    return true;
}

}  // namespace

TLIBCSzList* SzListAlloc(int size) {
    int bytes = size;
    int least = kHeader + kMinSlots * 4 + 64;
    if (bytes < least) bytes = least;
    auto* list = static_cast<TLIBCSzList*>(std::calloc(1, static_cast<size_t>(bytes)));
    if (list == nullptr) return nullptr;
    list->cbAlloc = bytes;
    list->nSlot = kMinSlots;
    return list;
}

const char* SzListGet(const TLIBCSzList* list, int index) {
    if (list == nullptr || index < 0 || index >= list->nItem) return nullptr;
    return Text(list) + Offsets(list)[index];
}

int SzListAdd(TLIBCSzList** plist, const char* text) {
    if (plist == nullptr || *plist == nullptr || text == nullptr) return -1;
    size_t len = std::strlen(text) + 1;
    if (len > INT_MAX / 8 || !Reserve(plist, static_cast<int>(len))) return -1;
    TLIBCSzList* list = *plist;
    std::memcpy(Text(list) + list->cbText, text, len);
    Offsets(list)[list->nItem++] = list->cbText;
    list->cbText += static_cast<int32_t>(len);
    return 0;
}

int SzListRemoveAll(TLIBCSzList* list) {
    if (list == nullptr) return -1;
    list->nItem = 0;
    list->cbText = 0;
    return 0;
}

void SzListFree(TLIBCSzList* list) { std::free(list); }

int StrSep(const char* text, const char* separators, TLIBCSzList** plist) {
    if (text == nullptr || separators == nullptr || plist == nullptr || *plist == nullptr) return -1;
    int added = 0;
    std::string piece;
    for (const char* p = text;; ++p) {
        bool end = *p == '\0';
        if (!end && std::strchr(separators, *p) == nullptr) {
            piece += *p;
            continue;
        }
        if (!piece.empty()) {
            if (SzListAdd(plist, piece.c_str()) != 0) return -1;
            ++added;
            piece.clear();
        }
        if (end) return added;
    }
}

int StrReplace(char* buf, const char* from, const char* to, int max, int size) {
    if (buf == nullptr || from == nullptr || to == nullptr || size <= 0 || *from == '\0') return -1;
    std::string text(buf, strnlen(buf, static_cast<size_t>(size)));
    std::string out;
    size_t fromLen = std::strlen(from);
    int count = 0;
    size_t pos = 0;
    for (size_t hit; (max == 0 || count < max) && (hit = text.find(from, pos)) != std::string::npos;) {
        out.append(text, pos, hit - pos).append(to);
        pos = hit + fromLen;
        ++count;
    }
    out.append(text, pos, std::string::npos);
    if (out.size() >= static_cast<size_t>(size)) return -1;
    std::memcpy(buf, out.c_str(), out.size() + 1);
    return count;
}

int SeperateSubnet(const char* item, char* buf, int size, int* prefixLen) {
    if (item == nullptr || buf == nullptr || size <= 0) return -1;
    const char* slash = std::strchr(item, '/');
    size_t len = slash != nullptr ? static_cast<size_t>(slash - item) : std::strlen(item);
    if (len >= static_cast<size_t>(size)) len = static_cast<size_t>(size) - 1;
    std::memcpy(buf, item, len);
    buf[len] = '\0';
    if (slash != nullptr && prefixLen != nullptr) {
        char* end = nullptr;
        long value = std::strtol(slash + 1, &end, 10);
        if (end != slash + 1 && *end == '\0' && value >= 0 && value <= 128) *prefixLen = static_cast<int>(value);
    }
    return 0;
}

void KeepClass(const std::string& cls, Json::Value& list) {
    if (!list.isArray()) return;
    Json::Value kept(Json::arrayValue);
    for (const Json::Value& entry : list) {
        if (!entry.isObject()) continue;
        const Json::Value& value = entry["class"];
        if (value.isString() && value.asString() == cls) kept.append(entry);
    }
    list.swap(kept);
}

}  // namespace tarncore

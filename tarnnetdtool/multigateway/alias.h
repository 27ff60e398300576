// The IPv4 addresses of a WAN interface: its address from the ifconfig output and its IP aliases
// from the network SDK, joined into the source of its policy table.
#ifndef TARNNETDTOOL_MULTIGATEWAY_ALIAS_H
#define TARNNETDTOOL_MULTIGATEWAY_ALIAS_H

#include "tarncore.h"

#include <string>

namespace multigateway {

// Bytes of the line buffer that holds an ifconfig line and then the address text.
inline constexpr int kLineSize = 1024;

// Owns a core library list. The library may move a list while adding to it, so such calls get
// the pointer's address, and every later use reads the pointer afresh.
class SzList {
public:
    explicit SzList(int size) : list_(TLIBCSzListAlloc(size)) {}
    ~SzList() {
        if (list_ != nullptr) TLIBCSzListFree(list_);
    }
    SzList(const SzList&) = delete;
    SzList& operator=(const SzList&) = delete;

    explicit operator bool() const { return list_ != nullptr; }
    TLIBCSzList* get() const { return list_; }
    TLIBCSzList** address() { return &list_; }
    int count() const { return list_ != nullptr ? list_->nItem : 0; }

private:
    TLIBCSzList* list_;
};

enum class AddressLookup { kFound, kNoAddress, kFailed };

// Leaves the interface's IPv4 address text in `line` (kLineSize bytes) when found. kFailed
// (logged) when ifconfig cannot be started or the word list cannot be allocated.
AddressLookup GetIfconfigAddress(const std::string& ifname, char* line);

// The address, then "," and the address part of each IP alias that the SDK adds to `aliases`;
// the aliases stay in the list.
std::string BuildTableSource(const std::string& ifname, const char* address, SzList& aliases);

}  // namespace multigateway

#endif

// Network SDK (libtarnnetsdk): interface address helpers. C functions.
#ifndef TARN_PLATFORM_TARNNETSDK_H
#define TARN_PLATFORM_TARNNETSDK_H

#include "tarncore.h"

#ifdef __cplusplus
extern "C" {
#endif

// Appends the interface's IP aliases, one "address/prefixlength" item each, to *list (which
// may move). 0 on success; anything else is failure.
int TARNNetIpAliasList(const char* ifname, TLIBCSzList** list);
// Writes the address part of an "address/prefixlength" item into `buf` (at most `size` bytes
// with the NUL) and the prefix length, when there is one, into *prefixLen. 0, or -1 on failure.
int TARNNetSeperateSubnet(const char* item, char* buf, int size, int* prefixLen);

#ifdef __cplusplus
}
#endif

#endif

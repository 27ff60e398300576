// Address text and network masks, for every part that turns kernel bytes into text.
#ifndef TARN_HOSTKIT_INET_H
#define TARN_HOSTKIT_INET_H

#include <cstdint>
#include <string>

namespace tarnlinux {

// "192.0.2.1" or "2001:db8::1" of the 4 or 16 bytes at `bytes`; "" for another family.
std::string AddressText(int family, const uint8_t* bytes);

// Clears the bits of `bytes` past the first `length` (0 to 8 * `size`).
void MaskBits(uint8_t* bytes, int size, int length);

}  // namespace tarnlinux

#endif

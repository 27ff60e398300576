#include "hostkit/inet.h"

#include <arpa/inet.h>

#include <algorithm>

namespace tarnlinux {

std::string AddressText(int family, const uint8_t* bytes) {
    // inet_ntop formats IPv4 through sprintf, which shows in a document of a thousand routes.
    if (family == AF_INET) {
        std::string text;
        for (int i = 0; i < 4; ++i) (text += i == 0 ? "" : ".") += std::to_string(bytes[i]);
        return text;
    }
    char text[INET6_ADDRSTRLEN] = "";
    if (family != AF_INET6 || inet_ntop(family, bytes, text, sizeof text) == nullptr) return "";
    return text;
}

void MaskBits(uint8_t* bytes, int size, int length) {
    for (int i = 0; i < size; ++i) {
        int keep = std::clamp(length - i * 8, 0, 8);
        bytes[i] &= static_cast<uint8_t>(0xff00 >> keep);
    }
}

}  // namespace tarnlinux

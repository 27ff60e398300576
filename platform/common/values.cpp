// The value parts of the network library's types, the same on every platform.
#include "tarnnetwork.h"

namespace tarnnetwork {
namespace utils {

IPAddress::IPAddress() = default;
IPAddress::~IPAddress() = default;

IPAddress& IPAddress::operator=(const std::string& text) {
    text_ = text;
    assigned_ = true;
    return *this;
}

}  // namespace utils
}  // namespace tarnnetwork

namespace tarn::network::ipv6::router {

Router6::~Router6() = default;

}  // namespace tarn::network::ipv6::router

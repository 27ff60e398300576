#include "linux/owned.h"

#include "linux/atomicfile.h"

#include <string>

namespace tarnlinux {

bool NameRouteProtocols() {
    std::string text;
    for (const RouteProtocol& protocol : kRouteProtocols) text += std::to_string(protocol.number) + " " + protocol.name + "\n";
    return UpdateFile(kProtoNamesPath, text);
}

}  // namespace tarnlinux

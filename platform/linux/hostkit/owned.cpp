#include "hostkit/owned.h"

#include "hostkit/atomicfile.h"

#include <string>

namespace tarnlinux {

bool NameRouteProtocols() {
    std::string text;
    for (const RouteProtocol& protocol : kRouteProtocols) text += std::to_string(protocol.number) + " " + protocol.name + "\n";
    return UpdateFile(kProtoNamesPath, text);
}

}  // namespace tarnlinux

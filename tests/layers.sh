#!/bin/sh
# layers.sh: includes run one way (tool -> platform/api; platform -> hostkit; daemon -> hostkit).
# Include paths catch most strays at compile time; these are the ones they cannot: a relative
# path, or a header that the host kit's include directory happens to reach.
cd "$(dirname "$0")/.." || exit 1
bad=$( {
    grep -rnE '#include "[^"]*(\.\./|platform/|hostkit/|routing/|router6/|sim\.h|corestr\.h|sdbus\.h)' tarnnetdtool
    grep -rn '#include "' platform/linux/hostkit | grep -v '#include "hostkit/'
    grep -rnE '#include "([a-z0-9]+/|[^"]*\.\./)' tarnnetd | grep -v '#include "hostkit/'
    grep -rnE '#include "(tarnnetwork|tarnnetsdk|tarncore|corestr|addresses|keyvalue|sdbus)\.h"' tarnnetd
    grep -rnE '#include "[^"]*tarnnetd/' platform
} )
[ -z "$bad" ] || { echo "FAIL: includes against the layers:"; echo "$bad"; exit 1; }
echo ok

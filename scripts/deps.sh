#!/usr/bin/env bash
# Installs the Debian packages named as arguments that are not installed yet; silent and quick
# when they all are.
set -euo pipefail
missing=()
for pkg in "$@"; do
    dpkg-query -W -f='${Status}' "$pkg" 2>/dev/null | grep -q 'install ok installed' || missing+=("$pkg")
done
[ ${#missing[@]} -eq 0 ] && exit 0
echo "installing: ${missing[*]}" >&2
export DEBIAN_FRONTEND=noninteractive
# Some packages start their service on install (the DHCPv6 server would): Debian's policy-rc.d
# hook refuses every start while we install, unless the host has a policy of its own.
policy=/usr/sbin/policy-rc.d
if [ ! -e $policy ]; then
    trap 'rm -f $policy' EXIT
    printf '#!/bin/sh\nexit 101\n' >$policy
    chmod 755 $policy
fi
apt-get update -qq >/dev/null
apt-get install -y -qq --no-install-recommends "${missing[@]}" >/dev/null

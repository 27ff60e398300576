#!/bin/sh
# Twenty --apply-new-prefix runs at once, a new delegation arriving among them: every consumer
# ends with one /64 of the new prefix at its own index, none held twice.
set -eu
. "$(dirname "$0")/ipv6_router_lib.sh"
. "$(dirname "$0")/lib.sh"
veth lbr0 gbr0
vpn_server no
write_document wan0 '{"type": "native", "prefix": "2001:db8:1200::/56",
  "consumers": [{"owner": "lbr0"}, {"owner": "gbr0"}, {"owner": "ovpn"}, {"owner": "gbr9"}]}'
pids=
for i in $(seq 20); do
    [ "$i" = 11 ] && set_prefix wan0 2001:db8:3400::/56
    "$TOOL" --apply-new-prefix wan0 &
    pids="$pids $!"
done
for pid in $pids; do wait "$pid" || fail "a run ended with exit status $?"; done
ok "$TOOL" --apply-new-prefix wan0

expect_eq "$(holdings wan0)" "lbr0 2001:db8:3400::,gbr0 2001:db8:3400:1::,ovpn 2001:db8:3400:2::,gbr9 2001:db8:3400:3::," "holdings"
expect_eq "$(global6 lbr0)|$(global6 gbr0)" "2001:db8:3400::1/64 |2001:db8:3400:1::1/64 " "lbr0|gbr0 addresses"
expect_eq "$(ls -A $STORE | tr '\n' ' ')" "wan0 " "store directory"
echo ok

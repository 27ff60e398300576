#!/bin/sh
# A key/value rewrite racing a reader: the reader always sees the old file or the new one,
# never a mix or nothing; mode and owner survive.
set -eu
. "$(dirname "$0")/lib.sh"
dir=/tmp/kv
conf=$dir/openvpn.conf
mkdir -p $dir
seq 20000 | sed 's/^/push "route 198.51.100.0 255.255.255.0" # /' >$dir/filler
for v in a b; do { head -n 10000 $dir/filler; echo "server-ipv6 2001:db8:$v::/64"; tail -n 10000 $dir/filler; } >$dir/$v; done
hashes="$(md5sum <$dir/a) $(md5sum <$dir/b)"
cp $dir/a "$conf"
chmod 640 "$conf"
chown 1234:5678 "$conf"
trap "touch $dir/stop" EXIT
(
    reads=0
    while [ ! -e $dir/stop ]; do
        h=$(md5sum <"$conf") || h=missing
        case "$hashes" in *"$h"*) reads=$((reads + 1)) ;; *) echo "$h" >>$dir/torn ;; esac
    done
    echo $reads >$dir/reads
) &
for _ in $(seq 30); do
    ok "$PROBE" setline "$conf" server-ipv6 "server-ipv6 2001:db8:b::/64"
    ok "$PROBE" setline "$conf" server-ipv6 "server-ipv6 2001:db8:a::/64"
done
touch $dir/stop
wait $!
[ ! -e $dir/torn ] || fail "reader saw $(wc -l <$dir/torn) partial files"
[ "$(cat $dir/reads)" -gt 0 ] || fail "reader never read"
expect_eq "$(md5sum <"$conf")|$(stat -c '%a %u:%g' "$conf")" "$(md5sum <$dir/a)|640 1234:5678" "final content, mode and owner"
expect_eq "$(ls -A $dir | tr '\n' ' ')" "a b filler openvpn.conf reads stop " "directory after the rewrites"
echo "ok: $(cat $dir/reads) reads"

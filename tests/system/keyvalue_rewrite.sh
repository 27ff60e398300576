#!/bin/sh
# A key/value rewrite racing a reader: the reader always sees the old file or the new one,
# never a mix or nothing; mode and owner survive.
set -eu
. "$(dirname "$0")/lib.sh"

dir=/tmp/kv
conf=$dir/openvpn.conf
mkdir -p $dir
seq 20000 | sed 's/^/push "route 198.51.100.0 255.255.255.0" # /' >$dir/filler
make_version() {
    { head -n 10000 $dir/filler; echo "server-ipv6 $1"; tail -n 10000 $dir/filler; } >"$2"
}
make_version 2001:db8:a::/64 $dir/a
make_version 2001:db8:b::/64 $dir/b
hash_a=$(md5sum <$dir/a)
hash_b=$(md5sum <$dir/b)
cp $dir/a "$conf"
chmod 640 "$conf"
chown 1234:5678 "$conf"

reader=
trap '[ -n "$reader" ] && kill "$reader" 2>/dev/null; true' EXIT
(
    reads=0
    while [ ! -e $dir/stop ]; do
        h=$(md5sum <"$conf") || h=missing
        [ "$h" = "$hash_a" ] || [ "$h" = "$hash_b" ] || echo "$h" >>$dir/torn
        reads=$((reads + 1))
    done
    echo $reads >$dir/reads
) &
reader=$!

for i in $(seq 60); do
    prefix=2001:db8:b::/64
    [ $((i % 2)) -eq 0 ] && prefix=2001:db8:a::/64
    "$PROBE" setline "$conf" server-ipv6 "server-ipv6 $prefix" || fail "rewrite $i: exit status $?"
done
touch $dir/stop
wait "$reader"
reader=

[ ! -e $dir/torn ] || fail "reader saw $(wc -l <$dir/torn) partial files"
[ "$(cat $dir/reads)" -gt 0 ] || fail "reader never read"
expect_eq "$(md5sum <"$conf")" "$hash_a" "final content"
expect_eq "$(stat -c '%a %u:%g' "$conf")" "640 1234:5678" "mode and owner"
expect_eq "$(ls -A $dir | tr '\n' ' ')" "a b filler openvpn.conf reads stop " "directory after the rewrites"
echo "ok: $(cat $dir/reads) reads"

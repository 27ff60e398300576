#!/bin/bash
# The Debian package (package.sh TOOL PROBE BUILD): built from the build tree with the same files
# as `cmake --install`, without lintian errors, installed into a throwaway root (an overlay over /
# in our mount namespace) with its units verified and the daemon's exposure figure printed;
# removed, then purged, leaving the administrator's records. Also: the manual pages lint clean and the
# completion offers exactly the tool's actions.
set -eu
SOURCE=$(cd "$(dirname "$0")/../.." && pwd)
if [ -n "${TARN_IN_NAMESPACES:-}" ]; then
    for program in cpack lintian mandoc dpkg systemd-analyze jq; do
        command -v $program >/dev/null || { echo "skipped: no $program"; exit 77; }
    done
    # Made before lib.sh hides /tmp; kept through descriptors.
    work=$(mktemp -d)
    cpack --config "$3/CPackConfig.cmake" -B "$work" >"$work/cpack.log" 2>&1 || { cat "$work/cpack.log"; exit 1; }
    DESTDIR=$work/installed cmake --install "$3" --prefix /usr >/dev/null
    exec 5<"$(echo "$work"/*.deb)"
    installed=$(cd "$work/installed" && find . ! -type d | sort)
    lint=$(mandoc -T lint "$SOURCE"/man/* 2>&1 || true)
    # shellcheck disable=SC2016
    completed=$(bash -c '. "$1"; echo $_tarnnetdtool_actions' completion "$SOURCE/packaging/tarnnetdtool.bash-completion")
    rm -rf "$work"
fi
. "$(dirname "$0")/lib.sh"
expect_eq "$lint" "" "mandoc -T lint"
usage=$("$TOOL" | sed -n 's/^ \(--[-a-zA-Z0-9]*\).*/\1/p')
expect_eq "$(printf '%s\n' $completed | sort)" "$(printf '%s\n' "$usage" --get-gateway-data-by-interface | sort)" "completed actions"

cp /proc/self/fd/5 /tmp/tarnnetdtool.deb
lintian=$(lintian /tmp/tarnnetdtool.deb 2>&1 | grep -v 'root privileges' || true)
[ -z "$lintian" ] || echo "$lintian"
! grep -q '^E:' <<<"$lintian" || fail "lintian errors"
expect_eq "$(dpkg-deb -c /tmp/tarnnetdtool.deb | awk '$1 !~ /^d/ { print $6 }' | sort)" "$installed" "packaged and installed files"

ROOT=/tmp/root
mkdir -p $ROOT /tmp/.upper_root /tmp/.work_root
mount -t overlay tarn-root -o lowerdir=/,upperdir=/tmp/.upper_root,workdir=/tmp/.work_root $ROOT
mount -t proc proc $ROOT/proc
mount --bind /dev $ROOT/dev
in_root() { chroot $ROOT "$@"; }
cp /tmp/tarnnetdtool.deb $ROOT/tarnnetdtool.deb
# The administrator's records and scripts, and what the platform makes at run time.
mkdir -p $ROOT/etc/route-mgt/ipv6-router $ROOT/etc/iproute2/rt_tables.d
RECORDS="gateway_priority policy-route static-routes ipv6-router/wan0 tracking"
for f in $RECORDS; do echo '{}' >"$ROOT/etc/route-mgt/$f"; done
echo '20000 wan1' >$ROOT/etc/iproute2/rt_tables.d/tarn.conf
install -d -o nobody -m 1777 $ROOT/tmp/lock  # made first by another user

ok in_root dpkg -i /tarnnetdtool.deb >/dev/null
for f in multi-user.target.wants/tarnnetd.service network-online.target.wants/tarn-restore.service; do
    [ -L "$ROOT/etc/systemd/system/$f" ] || fail "$f not enabled"
done
expect_eq "$(stat -c '%U %a' $ROOT/run/tarn $ROOT/tmp/lock $ROOT/etc/route-mgt/tracking.d)" "root 755
root 755
root 755" "directories made by the package"
expect_eq "$(in_root systemd-analyze verify /lib/systemd/system/tarn{netd,-restore}.service 2>&1)" "" "systemd-analyze verify"
figure=$(in_root systemd-analyze security --offline=true /lib/systemd/system/tarnnetd.service |
    sed -n 's/.*Overall exposure level for tarnnetd.service: \([0-9.]*\).*/\1/p')
echo "tarnnetd.service exposure: $figure (at most 2.8)"
awk -v f="$figure" 'BEGIN { exit !(f != "" && f <= 2.8) }' || fail "exposure $figure above 2.8"

ok in_root dpkg -r tarnnetdtool >/dev/null
[ ! -e $ROOT/usr/sbin/tarnnetdtool ] || fail "the tool left after remove"
[ -e $ROOT/etc/iproute2/rt_protos.d/tarn.conf ] || fail "a configuration file removed before purge"
ok in_root dpkg -P tarnnetdtool >/dev/null
for f in /etc/iproute2/rt_protos.d/tarn.conf /etc/iproute2/rt_tables.d/tarn.conf /run/tarn /tmp/lock \
    /etc/systemd/system/multi-user.target.wants/tarnnetd.service /etc/systemd/system/tarnnetd.service; do
    if [ -e "$ROOT$f" ] || [ -L "$ROOT$f" ]; then fail "$f left after purge"; fi
done
for f in $RECORDS; do [ -f "$ROOT/etc/route-mgt/$f" ] || fail "purge removed $f"; done
echo ok

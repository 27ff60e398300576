# shellcheck shell=sh
# Sourced by the IPv6 router system tests BEFORE lib.sh: the VPN server's files in private /usr
# and /var, the router store, and what the consumers hold.
STORE=/etc/route-mgt/ipv6-router
VPN_DIR=/usr/tarn/etc/packages/Tunnelbay
VPN_CONF=$VPN_DIR/openvpn/openvpn.conf
VPN_CALLS=/tmp/openvpn.calls
VPN_SCRIPT=/var/packages/Tunnelbay/target/scripts/openvpn.sh

# vpn_server ENABLE: the VPN server's settings and configuration, a restart script recording calls.
vpn_server() {
    private_dir /usr
    private_dir /var
    mkdir -p $VPN_DIR/openvpn "${VPN_SCRIPT%/*}"
    echo "ovpn_enable_ipv6=$1" >$VPN_DIR/tarnvpn.conf
    printf 'dev tun0\nserver-ipv6 2001:db8:ffff::/64\nport 1194\n' >$VPN_CONF
    printf '#!/bin/sh\necho "$*" >>%s\n' $VPN_CALLS >$VPN_SCRIPT
    chmod 755 $VPN_SCRIPT
}

# write_document IFNAME TEXT: as the administrator does, replaced whole under the store lock.
under_lock() { mkdir -p $STORE /run/tarn; (flock 9; "$@") 9>>/run/tarn/ipv6-router.lock; }
store_doc() { printf '%s\n' "$2" >"$STORE/.$1.new" && mv "$STORE/.$1.new" "$STORE/$1"; }
write_document() { under_lock store_doc "$@"; }
# set_prefix IFNAME PREFIX [PLTIME VLTIME]: a delegation through the program a DHCPv6 hook runs,
# built beside the tool and opened before lib.sh hides /tmp.
exec 7<"$(dirname "$1")/tarnprefix"
PREFIX_PROGRAM=/tmp/tarnprefix
set_prefix() {
    [ -x $PREFIX_PROGRAM ] || { cp /proc/self/fd/7 $PREFIX_PROGRAM && chmod 755 $PREFIX_PROGRAM; }
    $PREFIX_PROGRAM set "$1" "$2" "${3:-4294967295}" "${4:-4294967295}"
}

# holdings IFNAME: "owner holds" of each consumer, in stored order, on one line.
holdings() {
    sed -n 's/.*"holds" : "\([^"]*\)".*/\1/p' "$STORE/$1" >/tmp/holds
    sed -n 's/.*"owner" : "\([^"]*\)".*/\1/p' "$STORE/$1" | paste -d ' ' - /tmp/holds | tr '\n' ,
}
# global6 IFNAME: the interface's global IPv6 addresses, sorted.
global6() { ip -6 -o addr show dev "$1" scope global | awk '{ print $4 }' | sort | tr '\n' ' '; }

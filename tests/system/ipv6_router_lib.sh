# shellcheck shell=sh
# Sourced by the IPv6 router system tests after lib.sh: the VPN server's files in private /usr
# and /var, the router store, and checks of what the consumers hold.
STORE=/etc/route-mgt/ipv6-router
STORE_LOCK=/run/tarn/ipv6-router.lock
VPN_DIR=/usr/tarn/etc/packages/Tunnelbay
VPN_CONF=$VPN_DIR/openvpn/openvpn.conf
VPN_CALLS=/tmp/openvpn.calls

# vpn_server ENABLE: the VPN server's settings, its OpenVPN configuration and a restart script
# that records each call.
vpn_server() {
    private_dir /usr
    private_dir /var
    mkdir -p $VPN_DIR/openvpn /var/packages/Tunnelbay/target/scripts
    echo "ovpn_enable_ipv6=$1" >$VPN_DIR/tarnvpn.conf
    printf 'dev tun0\nserver-ipv6 2001:db8:ffff::/64\nport 1194\n' >$VPN_CONF
    printf '#!/bin/sh\necho "$*" >>%s\n' $VPN_CALLS >/var/packages/Tunnelbay/target/scripts/openvpn.sh
    chmod 755 /var/packages/Tunnelbay/target/scripts/openvpn.sh
}

# write_document IFNAME TEXT: what a prefix delegation client does: the whole document, replaced
# atomically under the store lock.
write_document() {
    mkdir -p $STORE /run/tarn
    (
        flock 9
        printf '%s\n' "$2" >"$STORE/.$1.new"
        mv "$STORE/.$1.new" "$STORE/$1"
    ) 9>>$STORE_LOCK
}

# set_prefix IFNAME PREFIX: a new delegation; the consumers and what they hold stay as stored,
# so the read, the change and the write all happen under the store lock.
set_prefix() {
    (
        flock 9
        sed "s|\"prefix\" *: *\"[^\"]*\"|\"prefix\" : \"$2\"|" "$STORE/$1" >"$STORE/.$1.new"
        mv "$STORE/.$1.new" "$STORE/$1"
    ) 9>>$STORE_LOCK
}

# holdings IFNAME: one "owner holds" line per consumer, in stored order.
holdings() {
    sed -n 's/.*"holds" : "\([^"]*\)".*/\1/p' "$STORE/$1" >/tmp/holds
    sed -n 's/.*"owner" : "\([^"]*\)".*/\1/p' "$STORE/$1" | paste -d ' ' - /tmp/holds
}

# global6 IFNAME: the interface's global IPv6 addresses, sorted.
global6() {
    ip -6 -o addr show dev "$1" scope global | awk '{ print $4 }' | sort | tr '\n' ' '
}

# capture_syslog: the system log of the namespace goes to /tmp/syslog (a private /dev holds the
# log socket; the programs the tests run need only /dev/null and /dev/urandom from it).
SYSLOG_PID=
capture_syslog() {
    command -v busybox >/dev/null || skip "no busybox for a system log"
    mount -t tmpfs tarn-dev /dev
    mknod -m 666 /dev/null c 1 3
    mknod -m 444 /dev/urandom c 1 9
    busybox syslogd -n -O /tmp/syslog &
    SYSLOG_PID=$!
    trap 'kill $SYSLOG_PID 2>/dev/null; true' EXIT
    for _ in $(seq 50); do
        [ -S /dev/log ] && return
        sleep 0.1
    done
    fail "no system log socket"
}

#!/usr/bin/env bash
# A small multi-WAN device made of network namespaces on this host, driven by the product
# binary exactly as the device's scripts drive it. Every step checks its real effect and prints
# one line; the exit status is 0 only when every check held. Nothing outlives the run.
#
#   scripts/demo.sh            installs what is missing, builds, runs the story
#   TARN_BIN=DIR scripts/demo.sh   runs it with tarnnetdtool and tarnnetd already built in DIR
# No pipefail: the checks end pipelines with grep -q, which may stop reading early.
set -u
ROOT=$(cd "$(dirname "$0")/.." && pwd)
. "$ROOT/scripts/private-bus.sh"
. "$ROOT/scripts/kea-pd.sh"

refuse() {
    echo "demo: $*" >&2
    exit 1
}

if [ -z "${TARN_DEMO_INSIDE:-}" ]; then
    [ "$(id -u)" = 0 ] || refuse "needs root: it builds network namespaces (run it with sudo)"
    command -v unshare >/dev/null && unshare --net --mount true 2>/dev/null ||
        refuse "network and mount namespaces are not available here"
    if [ -z "${TARN_BIN:-}" ]; then
        . "$ROOT/scripts/common.sh"
        "$ROOT/scripts/deps.sh" "${BUILD_PACKAGES[@]}" "${DEMO_PACKAGES[@]}" || refuse "could not install packages"
        echo "building..." >&2
        build "$ROOT/build" -DBUILD_TESTING=OFF || refuse "the build failed"
        TARN_BIN=$ROOT/build
    fi
    for tool in busybox dbus-daemon ip setpriv nsenter kea-dhcp6 dhcpcd dnsmasq openvpn openssl start-stop-daemon; do
        command -v "$tool" >/dev/null || refuse "needs $tool"
    done
    # The device is this namespace pair; the upstreams, the far host and the LAN host are
    # namespaces held by processes that die with it.
    TARN_DEMO_INSIDE=1 TARN_BIN=$TARN_BIN exec unshare --net --mount --propagation private "$0" "$@"
fi

# ---------------------------------------------------------------------------------------------
# Output: one line per step, ✓ or ✗, the interesting output indented below it.

if [ -t 1 ]; then
    GREEN=$'\e[32m' RED=$'\e[31m' DIM=$'\e[2m' BOLD=$'\e[1m' PLAIN=$'\e[0m'
else
    GREEN= RED= DIM= BOLD= PLAIN=
fi
FAILED=0
OUT=
DEV=/tmp/demo

title() { printf '\n%s%s%s\n' "$BOLD" "$*" "$PLAIN"; }

# show TEXT: indented under the step, lines cut to fit 80 columns.
show() {
    [ -n "$1" ] || return 0
    printf '%s\n' "$1" | expand -t 4 | cut -c1-74 | sed "s/^/      /;s/^/$DIM/;s/\$/$PLAIN/"
}

# mark OK WHAT: the step's line.
mark() {
    if [ "$1" = 0 ]; then
        printf '  %s✓%s %s\n' "$GREEN" "$PLAIN" "$2"
    else
        printf '  %s✗%s %s\n' "$RED" "$PLAIN" "$2"
        FAILED=1
    fi
}

# tool ARGS...: runs the product, its standard output in $OUT; the status is its own.
tool() {
    OUT=$("$DEV/bin/tarnnetdtool" "$@" 2>"$DEV/err")
}

# step WHAT CHECK...: runs CHECK (a command) and marks the step.
step() {
    local what=$1
    shift
    "$@"
    mark $? "$what"
}

in_ns() {
    local pid=$1
    shift
    nsenter -t "$pid" -n "$@"
}

# ---------------------------------------------------------------------------------------------
# Teardown: every process we started, by pid; the namespaces and mounts end with us.

PIDS=()
# Daemons that leave the process tree (dhcpcd, the restarted VPN server) are found by pid file.
PIDFILES=(/run/dhcpcd/wan1-6.pid /tmp/demo/ovpn.pid)
cleanup() {
    trap - EXIT INT TERM
    local pid file
    for file in "${PIDFILES[@]}"; do [ ! -s "$file" ] || kill "$(cat "$file")" 2>/dev/null; done
    for pid in "${PIDS[@]}"; do kill "$pid" 2>/dev/null; done
    for pid in "${PIDS[@]}"; do wait "$pid" 2>/dev/null; done
}
trap cleanup EXIT
trap 'cleanup; exit 130' INT
trap 'cleanup; exit 143' TERM

# holder NAME: a process in a network namespace of its own; its pid in $HOLDER.
holder() {
    unshare --net setpriv --pdeathsig KILL sleep 3600 &
    HOLDER=$!
    PIDS+=("$HOLDER")
    local i
    for i in $(seq 50); do
        [ "$(readlink /proc/$HOLDER/ns/net)" != "$(readlink /proc/self/ns/net)" ] && break
        sleep 0.02
    done
    in_ns "$HOLDER" ip link set lo up
}

# link A B PID: veth A here, its peer B in the namespace of PID.
link() {
    ip link add "$1" type veth peer name "$2"
    ip link set "$2" netns "$3"
    ip link set "$1" up
    in_ns "$3" ip link set "$2" up
}

# private_dir DIR: writes under DIR go to an overlay that ends with the namespace.
private_dir() {
    local name
    name=$(echo "$1" | tr / _)
    mkdir -p "$DEV/upper$name" "$DEV/work$name"
    mount -t overlay "demo$name" -o "lowerdir=$1,upperdir=$DEV/upper$name,workdir=$DEV/work$name" "$1"
}

setup_host() {
    # The checkout or the build may be under /tmp, which the private /tmp hides: what the device
    # needs is opened before and copied after.
    exec 7<"$TARN_BIN/tarnnetdtool" 8<"$TARN_BIN/tarnnetd/tarnnetd" 9<"$ROOT/tarnnetd/net.tarn.Netd1.conf" || return 1
    exec 4<"$TARN_BIN/tarnprefix" 5<"$ROOT/tarnprefix/dhcpcd-hook" 6<"$ROOT/tarnprefix/dnsmasq-ra.conf" || return 1
    mount -t tmpfs demo-tmp /tmp || return 1
    mkdir -p "$DEV/bin" "$DEV/dbus/system.d"
    cp /proc/self/fd/7 "$DEV/bin/tarnnetdtool" && cp /proc/self/fd/8 "$DEV/bin/tarnnetd" &&
        cp /proc/self/fd/9 "$DEV/dbus/system.d/net.tarn.Netd1.conf" || return 1
    chmod 755 "$DEV/bin/tarnnetdtool" "$DEV/bin/tarnnetd"
    exec 7<&- 8<&- 9<&-
    mkdir -p "$DEV/hooks" && cp /proc/self/fd/4 "$DEV/bin/tarnprefix" && chmod 755 "$DEV/bin/tarnprefix" &&
        cp /proc/self/fd/5 "$DEV/hooks/70-tarnprefix" && cp /proc/self/fd/6 "$DEV/dnsmasq-ra.conf" || return 1
    exec 4<&- 5<&- 6<&-
    mount -t tmpfs demo-run /run || return 1
    private_dir /etc || return 1
    # The VPN server's files live under /usr and /var; dhcpcd keeps its state in /var/lib/dhcpcd
    # and runs only our hook.
    private_dir /usr && private_dir /var || return 1
    mount --bind "$DEV/hooks" /usr/lib/dhcpcd/dhcpcd-hooks || return 1
    # The device's ifconfig prints "inet addr:"; busybox's does too.
    if [ -e /sbin/ifconfig ]; then
        mount --bind "$(command -v busybox)" /sbin/ifconfig
    else
        private_dir /usr/sbin && ln -s "$(command -v busybox)" /usr/sbin/ifconfig
    fi
}

# The addresses: LAN 192.0.2.0/26, guests 192.0.2.64/26, far host 192.0.2.200; WAN1 and its
# upstream 198.51.100.0/24, WAN2 203.0.113.0/24; IPv6 2001:db8:1::/64, 2001:db8:2::/64 on the
# WANs, 2001:db8:f::/64 at the far host.
setup_network() {
    ip link set lo up
    holder; UP1=$HOLDER
    holder; UP2=$HOLDER
    holder; FAR=$HOLDER
    holder; LANHOST=$HOLDER

    link wan1 up1 "$UP1"
    link wan2 up2 "$UP2"
    ip addr add 198.51.100.2/25 dev wan1
    ip addr add 203.0.113.2/25 dev wan2
    ip addr add 2001:db8:1::2/64 dev wan1 nodad
    ip addr add 2001:db8:2::2/64 dev wan2 nodad
    in_ns "$UP1" ip addr add 198.51.100.1/25 dev up1
    in_ns "$UP2" ip addr add 203.0.113.1/25 dev up2
    in_ns "$UP1" ip addr add 2001:db8:1::1/64 dev up1 nodad
    in_ns "$UP2" ip addr add 2001:db8:2::1/64 dev up2 nodad

    # The far host is reachable through either upstream.
    ip link add far1 netns "$UP1" type veth peer name far1 netns "$FAR"
    ip link add far2 netns "$UP2" type veth peer name far2 netns "$FAR"
    in_ns "$UP1" ip link set far1 up
    in_ns "$UP2" ip link set far2 up
    in_ns "$FAR" ip link set far1 up
    in_ns "$FAR" ip link set far2 up
    in_ns "$UP1" ip addr add 198.51.100.129/25 dev far1
    in_ns "$UP2" ip addr add 203.0.113.129/25 dev far2
    in_ns "$FAR" ip addr add 198.51.100.130/25 dev far1
    in_ns "$FAR" ip addr add 203.0.113.130/25 dev far2
    in_ns "$FAR" ip addr add 192.0.2.200/32 dev lo
    in_ns "$FAR" ip route add 198.51.100.0/25 via 198.51.100.129
    in_ns "$FAR" ip route add 203.0.113.0/25 via 203.0.113.129
    in_ns "$UP1" sysctl -qw net.ipv4.ip_forward=1
    in_ns "$UP2" sysctl -qw net.ipv4.ip_forward=1
    in_ns "$UP1" ip route add 192.0.2.200/32 via 198.51.100.130
    in_ns "$UP2" ip route add 192.0.2.200/32 via 203.0.113.130

    # The LAN bridge with one host, and the guest bridge.
    ip link add lbr0 type bridge
    ip link add gbr0 type bridge
    ip link set lbr0 up
    ip link set gbr0 up
    ip link add lan0 type veth peer name eth0 netns "$LANHOST"
    ip link set lan0 master lbr0 up
    in_ns "$LANHOST" ip link set eth0 up
    ip addr add 192.0.2.1/26 dev lbr0
    ip addr add 192.0.2.65/26 dev gbr0
    in_ns "$LANHOST" ip addr add 192.0.2.10/26 dev eth0
    in_ns "$LANHOST" ip route add default via 192.0.2.1
}

start_daemon() {
    mkdir -p /run/dbus
    private_bus_config /run/dbus/system_bus_socket "$DEV/dbus/system.d" >"$DEV/dbus/bus.conf"
    dbus-daemon --config-file="$DEV/dbus/bus.conf" --nofork --nopidfile --nosyslog 2>"$DEV/dbus.log" &
    PIDS+=("$!")
    local i
    for i in $(seq 100); do [ -S /run/dbus/system_bus_socket ] && break; sleep 0.02; done
    "$DEV/bin/tarnnetd" 2>"$DEV/tarnnetd.log" &
    DAEMON_PID=$!
    PIDS+=("$!")
    for i in $(seq 100); do
        tool --is-server-ready && [ "$OUT" = 1 ] && return 0
        sleep 0.05
    done
    return 1
}

# rx PID IF: packets received on IF in the namespace of PID.
rx() { in_ns "$1" ip -s link show dev "$2" | awk '/RX:/ { getline; print $2; exit }'; }

# ping_via SOURCE UPSTREAM-PID UPSTREAM-IF: a ping to the far host from SOURCE that arrives on
# that upstream (and not the other).
ping_via() {
    local before after
    before=$(rx "$2" "$3")
    busybox ping -q -c 3 -W 1 -I "$1" 192.0.2.200 >/dev/null 2>&1 || return 1
    after=$(rx "$2" "$3")
    [ $((after - before)) -ge 3 ]
}

# consumers IFNAME: what setting up the device does once: the interface's router document lists
# lbr0, gbr0 and the VPN server, in that order, written under the store lock.
consumers() {
    local doc=/etc/route-mgt/ipv6-router/$1
    (
        flock 9 || exit 1
        printf '{"type": "native", "prefix": "", "consumers": [{"owner": "lbr0"}, {"owner": "gbr0"}, {"owner": "ovpn"}]}\n' \
            >"$doc.new" && mv "$doc.new" "$doc"
    ) 9>>/run/tarn/ipv6-router.lock
}

# kea_pool PREFIX: the upstream's DHCPv6 server delegates the /56 PREFIX, its whole pool, to the device.
kea_pool() { kea_pd_config up1 2001:db8:1::/64 "$1" 30 48 60 90 >"$DEV/kea.conf"; }

# vpn_server: a real OpenVPN server whose package files are where the tool looks; its restart
# script stops it by its pid file and starts it again with the rewritten configuration.
vpn_server() {
    local pkg=/usr/tarn/etc/packages/Tunnelbay scripts=/var/packages/Tunnelbay/target/scripts
    mkdir -p "$pkg/openvpn" "$scripts" || return 1
    echo "ovpn_enable_ipv6=yes" >"$pkg/tarnvpn.conf"
    openssl req -x509 -newkey ec -pkeyopt ec_paramgen_curve:prime256v1 -nodes -days 1 -subj /CN=demo-vpn \
        -keyout "$DEV/vpn.key" -out "$DEV/vpn.crt" 2>/dev/null || return 1
    printf '%s\n' "dev tun0" "proto udp" "port 1194" "topology subnet" "server 192.0.2.128 255.255.255.192" \
        "server-ipv6 2001:db8:ffff::/64" "ca $DEV/vpn.crt" "cert $DEV/vpn.crt" "key $DEV/vpn.key" "dh none" \
        >"$pkg/openvpn/openvpn.conf"
    cat >"$scripts/openvpn.sh" <<EOF
#!/bin/sh
start-stop-daemon --stop --quiet --oknodo --pidfile $DEV/ovpn.pid --exec /usr/sbin/openvpn --retry 3
start-stop-daemon --start --quiet --pidfile $DEV/ovpn.pid --exec /usr/sbin/openvpn -- \\
    --daemon --writepid $DEV/ovpn.pid --log $DEV/ovpn.log --config $pkg/openvpn/openvpn.conf
EOF
    chmod 755 "$scripts/openvpn.sh"
}

# start_ipv6_router: the DHCPv6 server upstream, dnsmasq's router advertisements on the bridges
# and dhcpcd on wan1 with our hook, which finds tarnprefix and tarnnetdtool on its PATH.
start_ipv6_router() {
    ip addr replace 2001:db8:1::2/64 dev wan1 nodad
    in_ns "$UP1" ip -6 route replace 2001:db8:4000::/34 via 2001:db8:1::2
    mkdir -p "$DEV/kea"
    kea_pool 2001:db8:4200::
    KEA_PIDFILE_DIR=$DEV/kea KEA_LOCKFILE_DIR=$DEV/kea nsenter -t "$UP1" -n kea-dhcp6 -c "$DEV/kea.conf" >"$DEV/kea.log" 2>&1 &
    KEA=$!
    PIDS+=("$KEA")
    dnsmasq -k --conf-file="$DEV/dnsmasq-ra.conf" --pid-file="$DEV/dnsmasq.pid" --dhcp-leasefile="$DEV/leases" \
        --log-facility="$DEV/dnsmasq.log" &
    PIDS+=("$!")
    printf '%s\n' ipv6only noipv6rs nodelay duid "allowinterfaces wan1" "interface wan1" "    ia_pd 1/::/56" >"$DEV/dhcpcd.conf"
    PATH=$DEV/bin:$PATH dhcpcd -6 -B -f "$DEV/dhcpcd.conf" wan1 >"$DEV/dhcpcd.log" 2>&1 &
    PIDS+=("$!")
}

# until_true SECONDS COMMAND...: waits for COMMAND; $TOOK is the time it took, as "1.23 s".
until_true() {
    local start end
    TOOK=
    start=$(date +%s%N)
    end=$((start + $1 * 1000000000))
    shift
    until "$@" >/dev/null 2>&1; do
        [ "$(date +%s%N)" -lt "$end" ] || return 1
        sleep 0.05
    done
    TOOK=$(awk -v ns=$(($(date +%s%N) - start)) 'BEGIN { printf "%.2f s", ns / 1e9 }')
}
has6() { ip -6 addr show dev "$1" to "$2" | grep -q inet6; }
# lanhost6 PREFIX FLAG: the LAN host holds a settled address in PREFIX marked FLAG.
lanhost6() { in_ns "$LANHOST" ip -6 -o addr show dev eth0 scope global | grep -v tentative | grep "inet6 $1" | grep -q -- "$2"; }
both6() { has6 lbr0 "$1::1/64" && has6 gbr0 "$1:1::1/64"; }
lanhost_addresses() { in_ns "$LANHOST" ip -6 -o addr show dev eth0 scope global | awk '{ print $4, $5, $6, $7, $8 }'; }

default_route() { ip -4 route show default | sed 's/ *$//'; }

# ---------------------------------------------------------------------------------------------

setup_host || refuse "could not set up the device's private files"
setup_network || refuse "could not build the namespaces"
start_daemon || refuse "tarnnetd did not become ready ($(head -c 200 "$DEV/tarnnetd.log"))"

echo "${BOLD}A two-WAN device in namespaces${PLAIN}: wan1 and wan2 lead to two upstreams that"
echo "both reach the far host 192.0.2.200; lbr0 is the LAN with one host, gbr0 the guests;"
echo "tarnnetd runs on a private bus. Each step runs tarnnetdtool <action> ..."

title "Gateways"
step "--add-gateway-info -4 1 wan1 198.51.100.1 … wan" tool --add-gateway-info -4 1 wan1 198.51.100.1 198.51.100.1 wan
step "--add-gateway-info -4 2 wan2 203.0.113.1 … wan" tool --add-gateway-info -4 2 wan2 203.0.113.1 203.0.113.1 wan
tool --add-gateway-info -6 1 wan1 2001:db8:1::1 2001:db8:1::1 wan &&
    tool --add-gateway-info -6 2 wan2 2001:db8:2::1 2001:db8:2::1 wan
mark $? "--add-gateway-info -6 for wan1 and wan2"
tool --get-gateway-list-data -4
listed=$(printf '%s' "$OUT" | grep -o '"ifname" : "[a-z0-9]*"' | tr '\n' ' ')
[ "$listed" = '"ifname" : "wan1" "ifname" : "wan2" ' ]
mark $? "--get-gateway-list-data -4: wan1 first, then wan2"
show "$OUT"
tool --get-interface-by-class -4 wan && [ "$OUT" = "wan1,wan2" ]
mark $? "--get-interface-by-class -4 wan: $OUT"
tool --refresh-gateway all && default_route | grep -q '^default via 198.51.100.1 dev wan1'
mark $? "--refresh-gateway all: the default goes via wan1"
show "$(default_route)"

title "Multi-gateway: each WAN's traffic leaves by its own WAN"
step "--enable-multi-gateway" tool --enable-multi-gateway
step "--enable-multi-gateway-v6" tool --enable-multi-gateway-v6
ip rule show | grep -q 'from 203.0.113.2 lookup wan2'
mark $? "ip rule: from each WAN address to its table"
show "$(ip rule show)"
ip route show table wan2 | grep -q '^default via 203.0.113.1 dev wan2'
mark $? "ip route show table wan2: default via 203.0.113.1"
show "$(ip route show table wan2)"
ping_via 198.51.100.2 "$UP1" up1
mark $? "ping far host from 198.51.100.2: arrives at upstream 1"
ping_via 203.0.113.2 "$UP2" up2
mark $? "ping far host from 203.0.113.2: arrives at upstream 2"
in_ns "$LANHOST" busybox ping -q -c 1 -W 1 192.0.2.1 >/dev/null 2>&1
mark $? "the LAN host still reaches the device directly"
ip -6 route show table wan2 | grep -q '^default via 2001:db8:2::1 dev wan2'
mark $? "ip -6 route show table wan2: default via 2001:db8:2::1"

title "Failover: tarnnetd watches its uplinks, no tool call"
# took_until PATTERN SECONDS: waits for the IPv4 default route to match; prints the milliseconds.
took_until() {
    local start=$(date +%s%N) now
    until default_route | grep -q "$1"; do
        now=$(date +%s%N)
        [ $(((now - start) / 1000000)) -lt $(($2 * 1000)) ] || return 1
        sleep 0.01
    done
    echo $((($(date +%s%N) - start) / 1000000))
}
printf '{ "interfaces": { "wan1": { "targets": [ "192.0.2.200" ] }, "wan2": { "targets": [ "192.0.2.200" ] } } }\n' \
    >/etc/route-mgt/tracking && kill -HUP "$DAEMON_PID" && sleep 1
mark $? "/etc/route-mgt/tracking: both WANs probe the far host, SIGHUP reads it"
in_ns "$UP1" nft add table inet demo '{ chain stop { type filter hook forward priority 0; policy drop; }; }'
took=$(took_until '^default via 203.0.113.1 dev wan2' 6)
mark $? "upstream 1 stops forwarding, wan1 stays up: the default moves to wan2 in ${took:-?} ms"
show "$(default_route)"
in_ns "$UP1" nft delete table inet demo
took=$(took_until '^default via 198.51.100.1 dev wan1' 8)
mark $? "upstream 1 forwards again: the default is back via wan1 in ${took:-?} ms (10 good rounds)"
show "$(default_route)"

title "IPv6 router: a /56 from a DHCPv6 server, cut into /64s for the LAN, the guests and the VPN"
tool --init-ipv6-router wan1 native
mark $? "--init-ipv6-router wan1 native: forwarding on"
show "net.ipv6.conf.all.forwarding = $(cat /proc/sys/net/ipv6/conf/all/forwarding)"
consumers wan1 && vpn_server && start_ipv6_router
mark $? "wan1's consumers lbr0, gbr0, ovpn; Kea upstream, dhcpcd with our hook on wan1, dnsmasq"
until_true 20 both6 2001:db8:4200
mark $? "Kea delegates 2001:db8:4200::/56: lbr0 and gbr0 hold their /64s ($TOOK after dhcpcd's start)"
show "$(ip -6 -br addr show dev lbr0; ip -6 -br addr show dev gbr0)"
until_true 5 has6 tun0 2001:db8:4200:2::1/64
mark $? "the OpenVPN server restarted on the third /64 ($TOOK more)"
show "$(grep server-ipv6 /usr/tarn/etc/packages/Tunnelbay/openvpn/openvpn.conf; ip -6 -br addr show dev tun0)"
until_true 10 lanhost6 2001:db8:4200: dynamic
mark $? "the LAN host has a SLAAC address in lbr0's /64 ($TOOK more)"
show "$(lanhost_addresses)"
in_ns "$LANHOST" busybox ping -6 -q -c 1 -W 2 2001:db8:1::1 >/dev/null 2>&1
mark $? "the LAN host pings 2001:db8:1::1 upstream over IPv6"
tool --get-internal-network && printf '%s\n' "$OUT" | grep -qx '2001:db8:4200:1::/64'
mark $? "--get-internal-network prints them"
show "$OUT"
kea_pool 2001:db8:4300:: && kill -HUP "$KEA" && sleep 0.2 && dhcpcd -6 -N wan1 >/dev/null 2>&1 &&
    until_true 10 both6 2001:db8:4300 && ! has6 lbr0 2001:db8:4200::1/64
mark $? "Kea moves to 2001:db8:4300::/56, dhcpcd renews at once: lbr0 and gbr0 move ($TOOK)"
until_true 5 has6 tun0 2001:db8:4300:2::1/64
mark $? "the VPN pool moved: tun0 on 2001:db8:4300:2::/64 ($TOOK more)"
show "$(grep server-ipv6 /usr/tarn/etc/packages/Tunnelbay/openvpn/openvpn.conf; ip -6 -br addr show dev tun0)"
until_true 10 lanhost6 2001:db8:4300: dynamic && lanhost6 2001:db8:4200: deprecated
mark $? "the LAN host has its new address, the old one deprecated ($TOOK more)"
show "$(lanhost_addresses)"

title "Switching it off"
step "--disable-multi-gateway" tool --disable-multi-gateway
step "--disable-multi-gateway-v6" tool --disable-multi-gateway-v6
! ip route show table wan1 | grep -q '^default' && ! ip route show table wan2 | grep -q '^default'
mark $? "the WAN tables hold no default route any more"
show "$(ip route show table wan2)"

echo
if [ "$FAILED" = 0 ]; then
    echo "${GREEN}Every check held.${PLAIN}"
else
    echo "${RED}Some checks failed.${PLAIN}"
fi
exit "$FAILED"

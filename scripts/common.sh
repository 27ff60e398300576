# Shared by run.sh, test.sh and the benchmark: the packages of the build, of the system tests
# and of the benchmark, and a configure-and-build step.
BUILD_PACKAGES=(cmake make g++ pkg-config libjsoncpp-dev libboost-dev libgtest-dev libnl-route-3-dev libsystemd-dev)
# A delegated prefix end to end: the DHCPv6 server upstream, the client on the device, router
# advertisements on the LAN and the VPN server with its certificate.
PD_PACKAGES=(kea-dhcp6-server dhcpcd-base dnsmasq-base openvpn openssl)
TEST_PACKAGES=(busybox iproute2 util-linux dbus-daemon systemd libglib2.0-bin nftables "${PD_PACKAGES[@]}")
DEMO_PACKAGES=(busybox iproute2 util-linux dbus-daemon nftables "${PD_PACKAGES[@]}")
BENCH_PACKAGES=(hyperfine busybox iproute2 util-linux dbus-daemon systemd nftables "${PD_PACKAGES[@]}")

# The package test builds, checks and installs the package (jq: also the reboot test).
TEST_PACKAGES+=(jq dpkg-dev file lintian mandoc dbus net-tools)
# Tests that need kernel parts the host lacks boot Debian's kernel under qemu (vm-kernel.sh).
TEST_PACKAGES+=(qemu-system-x86)

# build DIR [cmake options...]: configures (again, so that options given now take effect over
# an existing build directory), then builds incrementally.
build() {
    local dir=$1
    shift
    cmake -S "$ROOT" -B "$dir" -DCMAKE_BUILD_TYPE=RelWithDebInfo "$@" >/dev/null
    cmake --build "$dir" -j "$(nproc)" -- --no-print-directory >/dev/null
}

# bench_build [cmake options...]: a benchmark's packages and build/; TARN_BENCH_READY tells the
# benchmark's re-run in its namespaces that this is done.
bench_build() {
    "$ROOT/scripts/deps.sh" "${BUILD_PACKAGES[@]}" "${BENCH_PACKAGES[@]}"
    build "$ROOT/build" "$@"
    export TARN_BENCH_READY=1
}

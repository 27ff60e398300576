#!/usr/bin/env bash
# vm-kernel.sh DIR: Debian's kernel in DIR/vmlinuz and a small initramfs in DIR/initrd.img, for the
# system tests that need kernel parts the host lacks or a system of their own (tests/system/vm.sh
# boots them). Quick when DIR already has both, made by this script as it stands.
set -euo pipefail
DIR=$(realpath -m "$1")
stamp=$(sha256sum "$0" | cut -c1-16)
[ "$(cat "$DIR/stamp" 2>/dev/null)" = "$stamp" ] && exit 0
# What the guest mounts the host's root with, and what the tests make there.
MODULES=(virtio_pci 9pnet_virtio 9p overlay veth bridge sit)
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
cd "$work"
# download: the current kernel package's file, here; the lists are read again once if needed.
download() {
    local package
    package=$(apt-cache depends linux-image-amd64 2>/dev/null |
        awk '$1 == "Depends:" && $2 ~ /^linux-image-/ { print $2; exit }')
    [ -n "$package" ] && timeout 300 apt-get download -qq "$package" 2>/dev/null
}
download || { apt-get update -qq >/dev/null && download; } || { echo "vm-kernel.sh: no kernel package" >&2; exit 1; }
dpkg-deb -x ./*.deb deb
version=$(ls deb/lib/modules)
busybox depmod -b deb "$version"

initrd=$work/initrd
modules=lib/modules/$version
mkdir -p "$initrd"/{bin,proc,sys,dev,root,lib64,"$modules"}
cp deb/$modules/modules.dep "$initrd/$modules/"
for module in "${MODULES[@]}"; do
    for file in $(grep -E "/$module\.ko:" deb/$modules/modules.dep | tr -d :); do
        mkdir -p "$initrd/$modules/${file%/*}"
        cp "deb/$modules/$file" "$initrd/$modules/$file"
    done
done
# busybox with the libraries it links, at the paths its loader looks them up.
cp "$(command -v busybox)" "$initrd/bin/busybox"
for lib in $(ldd "$(command -v busybox)" | grep -oE '/[^ ]+'); do
    mkdir -p "$initrd${lib%/*}"
    cp "$lib" "$initrd$lib"
done
for applet in sh mount modprobe mkdir switch_root poweroff; do ln -s busybox "$initrd/bin/$applet"; done
cat >"$initrd/init" <<EOF
#!/bin/sh
# The host's root under an overlay whose writes stay in memory, with /run and /dev of the guest's
# own, the job's folder writable at /run/job; then the job's script.
mount -t proc proc /proc
mount -t devtmpfs dev /dev
for module in ${MODULES[*]}; do modprobe \$module; done
options=trans=virtio,version=9p2000.L,msize=262144
mkdir /host /upper
mount -t 9p -o ro,\$options host /host && mount -t tmpfs upper /upper && mkdir /upper/data /upper/work &&
    mount -t overlay -o lowerdir=/host,upperdir=/upper/data,workdir=/upper/work root /root &&
    mount -t tmpfs run /root/run && mkdir /root/run/job && mount -t 9p -o \$options job /root/run/job ||
    { echo "vm: cannot mount the host's root"; poweroff -f; }
mount -t sysfs sys /root/sys
mount --move /proc /root/proc
mount --move /dev /root/dev
exec switch_root /root /bin/sh /run/job/run
EOF
chmod 755 "$initrd/init"
mkdir -p "$DIR"
(cd "$initrd" && find . | busybox cpio -o -H newc 2>/dev/null) | gzip -1 >"$DIR/initrd.img.new"
cp deb/boot/vmlinuz-"$version" "$DIR/vmlinuz.new"
mv "$DIR/initrd.img.new" "$DIR/initrd.img"
mv "$DIR/vmlinuz.new" "$DIR/vmlinuz"
echo "$stamp" >"$DIR/stamp"

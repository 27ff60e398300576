# shellcheck shell=sh
# Sourced BEFORE lib.sh by system tests that need kernel parts this host lacks: vm_run runs a
# command in a virtual machine of Debian's kernel (scripts/vm-kernel.sh made TARN_VM_DIR) that
# sees this host's files read-only, with /run and /dev of its own and no network.

# vm_ready: TARN_VM_DIR holds a kernel and qemu is here.
vm_ready() { [ -s "${TARN_VM_DIR:-}/vmlinuz" ] && command -v qemu-system-x86_64 >/dev/null; }

# vm_run COMMAND ARG...: COMMAND's output and exit status from inside the machine (1 when it did
# not finish), run in this folder; arguments must not hold newlines. Emulated, not KVM: nested
# KVM stalled here.
vm_run() {
    local job status
    job=$(mktemp -d)
    printf '%s\n' "$PWD" "$@" >"$job/args"
    cat >"$job/run" <<EOF
export PATH=/usr/sbin:/usr/bin:/sbin:/bin ASAN_OPTIONS=${ASAN_OPTIONS:-} UBSAN_OPTIONS=${UBSAN_OPTIONS:-}
set --
while IFS= read -r arg; do set -- "\$@" "\$arg"; done </run/job/args
cd "\$1" && shift
"\$@" >/run/job/output 2>&1
echo \$? >/run/job/status
busybox poweroff -f
EOF
    timeout 150 qemu-system-x86_64 -accel tcg -m 1024 -smp 2 -nodefaults -no-reboot -display none \
        -serial "file:$job/console" -kernel "$TARN_VM_DIR/vmlinuz" -initrd "$TARN_VM_DIR/initrd.img" \
        -append "console=ttyS0 panic=-1 quiet" \
        -virtfs local,path=/,mount_tag=host,security_model=none,readonly=on,multidevs=remap \
        -virtfs "local,path=$job,mount_tag=job,security_model=none" </dev/null 2>"$job/qemu" || true
    cat "$job/output" 2>/dev/null || true
    status=1
    if [ -s "$job/status" ]; then
        status=$(cat "$job/status")
    else
        echo "the virtual machine did not finish its run:"
        tail -n 20 "$job/qemu" "$job/console"
    fi
    rm -rf "$job"
    return "$status"
}

# shellcheck shell=sh
# Sourced BEFORE lib.sh by system tests that need kernel parts this host lacks, or a system of
# their own: a virtual machine of Debian's kernel (scripts/vm-kernel.sh made TARN_VM_DIR) that
# sees this host's files through an overlay whose writes end with it, with /run and /dev of its
# own and no network. Arguments must not hold newlines.

# vm_ready: TARN_VM_DIR holds a kernel and qemu is here.
vm_ready() { [ -s "${TARN_VM_DIR:-}/vmlinuz" ] && command -v qemu-system-x86_64 >/dev/null; }

# vm_run COMMAND ARG...: COMMAND's output and exit status from inside the machine (1 when it did
# not finish), run in this folder as the machine's only program.
vm_run() { vm_start 'sh /run/job/job; busybox poweroff -f' "$@"; }

# vm_boot COMMAND ARG...: the same, with the machine booted into systemd, COMMAND its one job;
# /tmp is not emptied at boot, so that it still shows the host's. A container's marker of the
# host would make systemd take the machine for a container and ignore the kernel's command line.
vm_boot() {
    vm_start 'rm -f /.dockerenv
ln -s /dev/null /etc/tmpfiles.d/tmp.conf
printf "[Unit]\nSuccessAction=poweroff-immediate\nFailureAction=poweroff-immediate\n[Service]\nType=oneshot\nExecStart=/bin/sh /run/job/job\n" >/etc/systemd/system/vm-job.service
exec /lib/systemd/systemd --unit=vm-job.service' "$@"
}

# vm_start INIT COMMAND ARG...: the machine with INIT as its first process; /run/job/job runs
# COMMAND. Emulated, not KVM: nested KVM stalled here. The host's fstab and crypttab name
# devices the machine lacks, and systemd would wait for them.
vm_start() {
    local job status
    job=$(mktemp -d)
    printf '%s\n' "$1" >"$job/run"
    shift
    printf '%s\n' "$PWD" "$@" >"$job/args"
    cat >"$job/job" <<JOB
export TARN_IN_VM=1 PATH=/usr/sbin:/usr/bin:/sbin:/bin ASAN_OPTIONS=${ASAN_OPTIONS:-} UBSAN_OPTIONS=${UBSAN_OPTIONS:-}
set --
while IFS= read -r arg; do set -- "\$@" "\$arg"; done </run/job/args
cd "\$1" && shift
"\$@" >/run/job/output 2>&1
echo \$? >/run/job/status
JOB
    timeout 200 qemu-system-x86_64 -accel tcg -m 1024 -smp 2 -nodefaults -no-reboot -display none \
        -serial "file:$job/console" -kernel "$TARN_VM_DIR/vmlinuz" -initrd "$TARN_VM_DIR/initrd.img" \
        -append "console=ttyS0 panic=-1 quiet fstab=no luks=no" \
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

# What every root of the phone has, as arguments of bubblewrap (sourced by the sandbox and the launcher).
# shellcheck shell=bash disable=SC2034

phone_folder=$(dirname "$(realpath "${BASH_SOURCE[0]}")")
phone_path=/system/bin:/vendor/bin

# Folders that are there, empty or not, before anything else is.
phone_folders=(
    /system/bin /system/etc /system/lib /vendor/bin /vendor/etc /vendor/lib /data /data/local/tmp /data/property
    /mnt/vendor/persist /storage /sdcard /d /tmp /sys /sys/power /proc
    /dev/block /dev/block/bootdevice/by-name /dev/socket /dev/log /dev/state /dev/__properties__
)

# The kernel's own procfs lies in /.proc: the phone has names in /proc that a procfs takes from nobody (/proc/tp_name),
# so /proc is a plain folder that borrows from it what programs and their runtime libraries rely on. It is read-only,
# because to the kernel's switches in /proc/sys the phone of a root user is root.
kernel_proc=(self thread-self mounts filesystems sys net stat uptime loadavg)

# Applets that would be wrong on the phone: they know /proc only as the kernel has it, or the workstation's kernel.
not_applets="toybox busybox sh ash init linuxrc ps top pgrep pidof pkill killall killall5 reboot poweroff halt svc svok logger
    lsmod insmod rmmod modprobe modinfo"

bwrap=()

bind_ro() { bwrap+=(--ro-bind "$1" "$1"); }

# phone_libraries [PROGRAM]...: binds the dynamic loader and the libraries of the phone's shell and applets, and of the
# programs, at the places where the workstation has them; not those of a build, which are beside their program.
# libgcc_s is there for pthread_exit, which loads it at run time.
phone_libraries() {
    local library
    for library in $(ldd "$(command -v mksh)" "$(command -v toybox)" "$@" 2>/dev/null |
        sed -nE 's/^\t(.* => )?(\/[^ ]+) \(0x[0-9a-f]+\)$/\2/p' | sort -u); do
        [[ $library != */bin/../lib/* ]] || continue
        bwrap+=(--ro-bind "$library" "$library")
        [[ $library != */libc.so.6 ]] || bwrap+=(--ro-bind-try "${library%/*}/libgcc_s.so.1" "${library%/*}/libgcc_s.so.1")
    done
}

# is_emulated PROGRAM: it is for AArch64, the workstation is not.
is_emulated() { [[ $(uname -m) != aarch64 && $(od -An -j18 -N2 -tx1 "$1") == ' b7 00' ]]; }

# phone_emulation: binds the emulator, and the loader and libraries of AArch64 programs where these look for them. Only
# programs that are started through the emulator are emulated; what they start in turn is the workstation's own again.
phone_emulation() {
    local emulator libraries=/usr/aarch64-linux-gnu/lib
    if ! emulator=$(command -v qemu-aarch64-static) || [[ ! -e $libraries/libstdc++.so.6 ]]; then
        echo "phone: the AArch64 emulator or libraries are missing: run script/bootstrap aarch64" >&2
        exit 1
    fi
    bwrap+=(--ro-bind "$emulator" /system/bin/qemu-aarch64 --ro-bind "$libraries" /lib/aarch64-linux-gnu
        --ro-bind "$libraries/ld-linux-aarch64.so.1" /lib/ld-linux-aarch64.so.1)
}

# phone_base [NAME]...: the root but for its libraries, and without the applets named. The phone's own is in the folder
# `inside`, where its launcher has mounted what is bounded, root (which comes before all else), the devices and the
# terminals; anybody else's is a plain tmpfs.
phone_base() {
    local tool folder applet name
    for tool in bwrap mksh toybox busybox; do
        command -v "$tool" >/dev/null || { echo "phone: $tool is missing: run script/bootstrap" >&2; exit 1; }
    done
    # The phone's root may read files that it has not given itself leave to read: the service makes such files.
    bwrap+=(--unshare-all --unshare-user --disable-userns --uid 0 --gid 0 --cap-drop ALL --cap-add CAP_DAC_OVERRIDE)
    bwrap+=(--hostname phone --die-with-parent --chdir /)
    bwrap+=(--proc /.proc)
    # The user's keys are listed in every namespace.
    for name in keys key-users; do
        [[ ! -e /proc/$name ]] || bwrap+=(--ro-bind /dev/null "/.proc/$name")
    done
    bwrap+=(--remount-ro /.proc)
    if [[ -n ${inside-} ]]; then
        bwrap+=(--dir /dev --dir /dev/shm --dev-bind "$inside/pts" /dev/pts --symlink pts/ptmx /dev/ptmx)
        for name in null zero full random urandom tty; do
            bwrap+=(--dev-bind "$inside/devices/$name" "/dev/$name")
        done
        for name in fd fd/0:stdin fd/1:stdout fd/2:stderr; do
            bwrap+=(--symlink "/proc/self/${name%:*}" "/dev/${name#*:}")
        done
    else
        bwrap+=(--dev /dev)
    fi
    for folder in "${phone_folders[@]}"; do
        bwrap+=(--dir "$folder")
    done
    bwrap+=(--symlink system/bin /bin --symlink system/etc /etc)
    for name in "${kernel_proc[@]}"; do
        bwrap+=(--symlink "/.proc/$name" "/proc/$name")
    done
    for tool in mksh toybox busybox; do
        bwrap+=(--ro-bind "$(command -v "$tool")" "/system/bin/$tool")
    done
    # Debian's mksh stays out of posix mode when it is called sh, unlike its static builds ("&>" redirects both outputs).
    bwrap+=(--symlink mksh /system/bin/sh)
    local -A seen=()
    for applet in $not_applets "$@"; do
        seen[_$applet]=1
    done
    for tool in toybox busybox; do
        for applet in $(case $tool in toybox) toybox ;; busybox) busybox --list ;; esac); do
            [[ -z ${seen[_$applet]-} ]] || continue
            seen[_$applet]=1
            bwrap+=(--symlink "$tool" "/system/bin/$applet")
        done
    done
}

phone_environment() {
    local name
    bwrap+=(--clearenv --setenv PATH "$phone_path" --setenv ANDROID_ROOT /system --setenv ANDROID_DATA /data
        --setenv TMPDIR /data/local/tmp --setenv TERM "${TERM:-dumb}")
    for name in "${!GTEST_@}" "${!ASAN_@}" "${!UBSAN_@}" "${!TSAN_@}" "${!LSAN_@}" "${!BENCH_@}"; do
        bwrap+=(--setenv "$name" "${!name}")
    done
}

require_namespaces() {
    bwrap --unshare-all --unshare-user --ro-bind / / --proc /proc true 2>/dev/null && return
    cat >&2 <<'END'
phone: bubblewrap cannot make the namespaces that the phone lives in. Allow them, as root, with whichever applies:
    sysctl -w kernel.unprivileged_userns_clone=1                # Debian kernels with the switch
    sysctl -w user.max_user_namespaces=15000                    # where the limit is 0
    sysctl -w kernel.apparmor_restrict_unprivileged_userns=0    # Ubuntu 23.10 and later
    docker run --privileged ...                                 # in a container, which masks /proc otherwise
END
    exit 1
}

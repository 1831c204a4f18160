#!/usr/bin/env bash
# The 32-bit check: builds the host library, the provider framework, the
# command layer, the module and p4sim for 32-bit x86 (where long and time_t
# hold 32 bits, as in the engines that load the module) and runs their tests
# with CTest, inside a 32-bit Debian system made once with debootstrap.
#
# usage: scripts/check-i386.sh [--fresh] [--engine]
#   --fresh   start from an empty build folder (the default reuses it)
#   --engine  also build orvane-import and run its end-to-end tests (adds git
#             and graphviz to the system)
#
# Environment:
#   ORVANE_I386_CACHE   where the 32-bit system is kept (default /var/cache/orvane-i386)
#   ORVANE_I386_MIRROR  the Debian mirror (default: the one this machine's apt uses)
#   ORVANE_I386_SUITE   the Debian release (default bookworm)
#   ORVANE_I386_BUILD   the build folder (default build-i386 in the source tree)
#   ORVANE_I386_WERROR  1: every compiler warning is an error (default 0: warnings are counted)
#
# The system is made once and reused while complete; a system left half-made
# by an interrupted run is removed and made again. Needs root: debootstrap,
# chroot and mounts do. Every mount is made in a mount namespace of this
# script's own and is also undone on exit.
set -euo pipefail

fresh=0
engine=0
for arg in "$@"; do
    case $arg in
    --fresh) fresh=1 ;;
    --engine) engine=1 ;;
    -h | --help)
        sed -n '2,/^set -euo/p' "${BASH_SOURCE[0]}" | sed '$d; s/^# \{0,1\}//'
        exit 0
        ;;
    *)
        echo "check-i386: unknown argument $arg (see --help)" >&2
        exit 2
        ;;
    esac
done

if [[ $(id -u) -ne 0 ]]; then
    echo "check-i386: must run as root (debootstrap, chroot and mounts need it): sudo $0 $*" >&2
    exit 1
fi

root=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
cache=${ORVANE_I386_CACHE:-/var/cache/orvane-i386}
suite=${ORVANE_I386_SUITE:-bookworm}
build=${ORVANE_I386_BUILD:-$root/build-i386}
mkdir -p "$build"
build=$(cd "$build" && pwd)
if [[ $root/ == "$build"/* ]]; then
    echo "check-i386: the build folder $build holds the source tree; choose another" >&2
    exit 2
fi
system=$cache/$suite
jobs=2

# The mount namespace: whatever this script mounts disappears with it, even
# when it is killed. The trap below unmounts on every ordinary exit too.
if [[ -z ${ORVANE_I386_NAMESPACE:-} ]]; then
    export ORVANE_I386_NAMESPACE=1
    exec unshare --mount --propagation private -- "$BASH" "${BASH_SOURCE[0]}" "$@"
fi

# One run at a time uses a system.
mkdir -p "$cache"
exec 9>"$cache/lock"
if ! flock -n 9; then
    echo "check-i386: another run is using $cache; waiting for it" >&2
    flock 9
fi

started=$SECONDS
phase_started=$SECONDS
phase() {
    echo "== $1 ($((SECONDS - started)) s)"
    phase_started=$SECONDS
}

# --- mounts -----------------------------------------------------------------

mounted=()
unmount_all() {
    local i
    for ((i = ${#mounted[@]} - 1; i >= 0; i--)); do
        umount "${mounted[i]}" 2>/dev/null || umount -l "${mounted[i]}" 2>/dev/null || true
    done
    mounted=()
}
trap unmount_all EXIT
trap 'echo "check-i386: interrupted" >&2; exit 130' INT
trap 'echo "check-i386: terminated" >&2; exit 143' TERM

mount_in() {
    local target=$1
    shift
    mkdir -p "$target"
    mount "$@" "$target"
    mounted+=("$target")
}

# Nothing may be mounted below a folder that is about to be removed.
mounts_below() {
    awk -v p="$1/" '{ gsub(/\\040/, " ", $5); if (index($5 "/", p) == 1) print $5 }' /proc/self/mountinfo
}

# --- the mirror ---------------------------------------------------------------

# The first mirror that this machine's apt takes the given release from:
# "deb URI SUITE ..." lines of *.list files and URIs/Suites stanzas of
# *.sources files.
apt_mirror() {
    local want=$1 f
    for f in /etc/apt/sources.list /etc/apt/sources.list.d/*.list; do
        [[ -f $f ]] || continue
        awk -v s="$want" '
            $1 == "deb" { i = 2; if ($2 ~ /^\[/) { while (i <= NF && $i !~ /\]$/) i++; i++ }
                          if ($(i + 1) == s) { print $i; exit } }' "$f"
    done
    for f in /etc/apt/sources.list.d/*.sources; do
        [[ -f $f ]] || continue
        awk -v s="$want" '
            function flush() { if (enabled && uris != "" && (" " suites " ") ~ (" " s " ")) { split(uris, u, " "); print u[1] }
                               uris = ""; suites = ""; enabled = 1 }
            BEGIN { enabled = 1 }
            /^[ \t]*$/ { flush(); next }
            /^[ \t]*#/ { next }
            tolower($1) == "uris:" { $1 = ""; uris = $0 }
            tolower($1) == "suites:" { $1 = ""; suites = $0 }
            tolower($1) == "enabled:" { enabled = (tolower($2) != "no") }
            END { flush() }' "$f"
    done
}

mirror=${ORVANE_I386_MIRROR:-$(apt_mirror "$suite" | head -n 1)}
if [[ -z $mirror ]]; then
    echo "check-i386: no mirror for $suite in /etc/apt/sources.list*: set ORVANE_I386_MIRROR" >&2
    exit 1
fi

# --- the 32-bit system --------------------------------------------------------

# What the build and the tests need. wxWidgets comes separately (below).
packages=(
    cmake make g++ pkg-config
    libsqlite3-dev nettle-dev
    libgtest-dev libgmock-dev
    nlohmann-json3-dev
    python3
    wx3.2-headers libwxbase3.2-1
)
if ((engine)); then
    packages+=(git graphviz libcli11-dev)
fi
packages_mark=$system/.orvane-packages
base_mark=$system/.orvane-base

run_in() {
    setarch i686 chroot "$system" /usr/bin/env -i \
        PATH=/usr/local/sbin:/usr/local/bin:/usr/sbin:/usr/bin:/sbin:/bin \
        HOME=/root LANG=C.UTF-8 DEBIAN_FRONTEND=noninteractive "$@"
}

mount_system() {
    mount_in "$system/proc" -t proc proc
    mount_in "$system/dev" --bind /dev
    mount_in "$system/dev/pts" --bind /dev/pts
    mount_in "$system/src" --bind "$root"
    mount_in "$system/build" --bind "$build"
}

make_base() {
    if [[ -d $system && ! -f $base_mark ]]; then
        local left
        left=$(mounts_below "$system")
        if [[ -n $left ]]; then
            echo "check-i386: $system is half-made but has mounts below it; unmount them first:" >&2
            echo "$left" >&2
            exit 1
        fi
        echo "check-i386: removing the half-made system in $system"
        rm -rf --one-file-system "$system"
    fi
    if [[ -f $base_mark ]]; then
        return
    fi
    if ! command -v debootstrap >/dev/null; then
        echo "check-i386: installing debootstrap"
        DEBIAN_FRONTEND=noninteractive apt-get install -y -qq debootstrap >/dev/null
    fi
    mkdir -p "$cache"
    echo "check-i386: making a 32-bit $suite system in $system from $mirror"
    if ! debootstrap --arch=i386 --variant=minbase "$suite" "$system" "$mirror" >"$cache/debootstrap.log" 2>&1; then
        tail -n 30 "$cache/debootstrap.log" >&2
        [[ -f $system/debootstrap/debootstrap.log ]] && tail -n 30 "$system/debootstrap/debootstrap.log" >&2
        echo "check-i386: debootstrap failed (log: $cache/debootstrap.log)" >&2
        exit 1
    fi
    touch "$base_mark"
}

# wx-config, setup.h and the development links of wxBase come with
# libwxgtk3.2-dev, whose GTK dependencies do not configure in a chroot
# (dconf wants a session bus). Only the base library's part of it is
# unpacked.
unpack_wx_dev() {
    run_in bash -euo pipefail -c '
        cd /tmp
        rm -f libwxgtk3.2-dev_*.deb
        apt-get download -qq libwxgtk3.2-dev
        dpkg-deb --fsys-tarfile libwxgtk3.2-dev_*.deb |
            tar -x -C / --wildcards "./usr/lib/*/wx/config/*" "./usr/lib/*/wx/include/*" "./usr/lib/*/libwx_baseu*"
        rm -f libwxgtk3.2-dev_*.deb
        config=$(ls /usr/lib/*/wx/config/gtk3-unicode-3.2)
        ln -sf "$config" /usr/bin/wx-config
        wx-config --libs base >/dev/null'
}

# The mark lists what is installed; nothing is done while it lists every
# package wanted.
install_packages() {
    local have=() p missing=0
    if [[ -f $packages_mark ]]; then
        mapfile -t have <"$packages_mark"
    fi
    for p in "${packages[@]}" wx-dev-unpacked; do
        [[ " ${have[*]} " == *" $p "* ]] || missing=1
    done
    if ((!missing)); then
        return
    fi
    rm -f "$packages_mark"
    echo "check-i386: installing the build dependencies in the 32-bit system"
    cp /etc/resolv.conf "$system/etc/resolv.conf" 2>/dev/null || true
    printf '#!/bin/sh\nexit 101\n' >"$system/usr/sbin/policy-rc.d"
    chmod 755 "$system/usr/sbin/policy-rc.d"
    run_in dpkg --configure -a
    run_in apt-get update -qq
    run_in apt-get install -y -qq --no-install-recommends "${packages[@]}" >"$cache/apt.log" 2>&1 ||
        { tail -n 30 "$cache/apt.log" >&2; echo "check-i386: apt-get failed (log: $cache/apt.log)" >&2; exit 1; }
    unpack_wx_dev
    run_in apt-get clean
    printf '%s\n' "${have[@]}" "${packages[@]}" wx-dev-unpacked | sort -u >"$packages_mark"
}

phase "32-bit $suite system in $system"
make_base
mount_system
install_packages
echo "check-i386: $(run_in g++ --version | head -n 1), $(run_in cmake --version | head -n 1), wxWidgets $(run_in wx-config --version)"
echo "check-i386: source $root, build $build"

# --- build and test -------------------------------------------------------------

if ((fresh)); then
    find "$build" -mindepth 1 -delete
fi

phase "configure"
run_in cmake -S /src -B /build -DCMAKE_BUILD_TYPE=RelWithDebInfo -DORVANE_BUILD_ENGINE="$( ((engine)) && echo ON || echo OFF)" \
    -DORVANE_WERROR="$( ((${ORVANE_I386_WERROR:-0})) && echo ON || echo OFF)" \
    >"$build/configure.log" 2>&1 ||
    { cat "$build/configure.log" >&2; echo "check-i386: configure failed" >&2; exit 1; }

phase "build (-j$jobs)"
run_in cmake --build /build -j "$jobs" >"$build/build.log" 2>&1 ||
    { grep -E -B2 -A12 'error|Error' "$build/build.log" | head -n 150 >&2; echo "check-i386: build failed (log: $build/build.log)" >&2; exit 1; }
build_seconds=$((SECONDS - phase_started))
warnings=$(grep -c 'warning:' "$build/build.log" || true)
if ((warnings > 0)); then
    echo "check-i386: $warnings compiler warnings in what was compiled (log: $build/build.log):"
    grep 'warning:' "$build/build.log" | sort -u | head -n 40
fi

phase "test"
if [[ $(run_in uname -m) != i686 ]]; then
    echo "check-i386: the system does not run as i686" >&2
    exit 1
fi
status=0
run_in ctest --test-dir /build -j "$jobs" --output-on-failure --timeout 600 >"$build/test.log" 2>&1 || status=1
test_seconds=$((SECONDS - phase_started))
grep -E -A1000 'tests passed|tests failed' "$build/test.log" | grep -v '^$' || true
if ((status != 0)); then
    grep -E -B40 '\*\*\*Failed|\(Failed\)|\*\*\*Timeout|\*\*\*Exception' "$build/test.log" | head -n 300 >&2 || true
fi

# The binary contract's table of places on this platform.
run_in /build/tests/provider/provider_tests --gtest_filter='BinaryContract.MembersAndSlots*' \
    >"$build/binary-contract.txt" 2>&1 || status=1

count() {
    grep -cE "^ *[0-9]+/[0-9]+ Test +#[0-9]+: .* $1" "$build/test.log" || true
}
passed=$(count 'Passed')
skipped=$(count '\*\*\*Skipped')
failed=$(($(grep -cE '^ *[0-9]+/[0-9]+ Test +#[0-9]+: ' "$build/test.log" || true) - passed - skipped))
echo "check-i386: $passed passed, $failed failed, $skipped skipped (i686, long is $(run_in getconf LONG_BIT) bits);" \
    "build ${build_seconds} s, tests ${test_seconds} s, total $((SECONDS - started)) s"
echo "check-i386: logs in $build: test.log, build.log, binary-contract.txt (the interface's slots and offsets)"
if ((status != 0)); then
    echo "check-i386: FAILED" >&2
fi
exit $status

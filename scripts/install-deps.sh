#!/usr/bin/env bash
# Installs the Debian packages that the build, the tests, the demo and the
# benchmarks need. Idempotent: quiet and quick when everything is present.
set -euo pipefail

packages=(
    build-essential cmake pkg-config git
    git-lfs                    # large files of an import with --lfs-threshold/--lfs-pattern, and their tests
    libwxgtk3.2-dev            # wxWidgets 3.2 (we link wxBase only)
    libsqlite3-dev sqlite3
    nettle-dev                 # SHA-1, SHA-256, MD5 and base64
    libgtest-dev libgmock-dev
    nlohmann-json3-dev libcli11-dev
    clang-format               # scripts/check-format.sh
    clang libclang-rt-dev      # libFuzzer: scripts/fuzz.sh
    valgrind                   # scripts/memcheck.sh
    python3                    # independent decoder of marshalled output in tests
    graphviz                   # stream graphs as SVG
    gnuplot-nox                # the plot of scripts/bench.sh
)

missing=()
for p in "${packages[@]}"; do
    [[ "$p" == \#* ]] && continue
    if ! dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q "install ok installed"; then
        missing+=("$p")
    fi
done

if ((${#missing[@]} == 0)); then
    exit 0
fi

echo "install-deps: installing ${missing[*]}" >&2
sudo_cmd=()
if [[ $(id -u) -ne 0 ]]; then
    sudo_cmd=(sudo)
fi
export DEBIAN_FRONTEND=noninteractive
"${sudo_cmd[@]}" apt-get -o DPkg::Lock::Timeout=600 update -qq
"${sudo_cmd[@]}" apt-get -o DPkg::Lock::Timeout=600 install -y -qq --no-install-recommends "${missing[@]}" >/dev/null

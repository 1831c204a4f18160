#!/usr/bin/env bash
# The test command: installs the dependencies, checks the formatting of the
# changed lines, builds with every warning an error, and runs every test
# (but those labelled "scale", which take minutes: ctest -L scale runs them),
# first in a plain build, then again with AddressSanitizer and
# UndefinedBehaviorSanitizer, then runs every fuzz target for a short while
# when clang is there (scripts/fuzz.sh). Exits non-zero on any failure.
set -euo pipefail

root=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
cd "$root"

scripts/install-deps.sh

# What our programs and tests name in the temporary folders: import logs,
# staging files, workspaces, scratch folders. A run of the tests must leave
# none of them behind; those of a process that still runs (a migration
# beside the tests) are not ours to judge.
debris() {
    find /tmp "${TMPDIR:-/tmp}" -maxdepth 1 -mindepth 1 \( -name 'Orvane*' -o -name 'orvane-*' \) 2>/dev/null |
        sort -u
}
owner_lives() {
    local name=${1##*/} pid=
    [[ $name =~ ^orvane-(em|import)-([0-9]+)[.-] ]] && pid=${BASH_REMATCH[2]}
    [[ -n $pid && -d /proc/$pid ]]
}
debris_before=$(debris)

status=0
echo "== format"
scripts/check-format.sh || status=1

jobs=$(nproc 2>/dev/null || echo 2)

run_build() {
    local dir=$1
    shift
    echo "== configure $dir"
    cmake -S . -B "$dir" -DCMAKE_BUILD_TYPE=RelWithDebInfo -DORVANE_WERROR=ON "$@" >"$dir.configure.log" 2>&1 ||
        { cat "$dir.configure.log"; return 1; }
    echo "== build $dir"
    cmake --build "$dir" -j "$jobs" || return 1
    echo "== test $dir"
    ctest --test-dir "$dir" -j "$jobs" --output-on-failure --timeout 600 -LE scale || return 1
}

mkdir -p build build-asan
run_build build || status=1
ASAN_OPTIONS=detect_leaks=1:abort_on_error=1 UBSAN_OPTIONS=print_stacktrace=1:halt_on_error=1 \
    run_build build-asan -DORVANE_SANITIZE=ON || status=1

# The fuzz targets' seeds are replayed in both builds above; with clang each
# target also fuzzes for a short, bounded time.
fuzz_seconds=${ORVANE_FUZZ_SECONDS:-10}
if command -v clang++ >/dev/null 2>&1; then
    scripts/fuzz.sh "$fuzz_seconds" || status=1
else
    echo "== fuzz: clang++ is not installed: the fuzz targets ran on their seeds only, without fuzzing"
fi

left=()
while IFS= read -r path; do
    [[ -n $path ]] && ! owner_lives "$path" && left+=("$path")
done < <(comm -13 <(echo "$debris_before") <(debris))
if ((${#left[@]} > 0)); then
    echo "test.sh: the tests left these behind:" >&2
    printf '  %s\n' "${left[@]}" >&2
    status=1
fi

if ((status != 0)); then
    echo "test.sh: FAILED" >&2
else
    echo "test.sh: all tests passed in both builds, and the fuzz runs found nothing"
fi
exit $status

#!/usr/bin/env bash
# Fuzzes what the server feeds us: builds the libFuzzer targets of
# tests/fuzz with clang (AddressSanitizer and UndefinedBehaviorSanitizer on)
# in build-fuzz-clang and runs every target for SECONDS.
#
#   scripts/fuzz.sh SECONDS [TARGET...]     targets: reader branches changes
#                                           describe clientform filepath
#
# Each target starts from its seed corpus (tests/fuzz/corpus/TARGET, never
# written to) and from what earlier runs found (build-fuzz-clang/fuzz/corpus).
# A crash, a leak, a sanitizer report, an input running longer than 10 s or a
# broken property of the target stops that target; its input is kept in
# build-fuzz-clang/fuzz/crashes/TARGET and the script exits non-zero. Replay
# one with: build-fuzz-clang/tests/fuzz/fuzz_TARGET FILE
set -euo pipefail

root=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
cd "$root"

if (($# < 1)) || ! [[ $1 =~ ^[0-9]+$ ]] || (($1 < 1)); then
    echo "usage: scripts/fuzz.sh SECONDS [TARGET...]" >&2
    exit 2
fi
seconds=$1
shift
targets=("$@")
if ((${#targets[@]} == 0)); then
    targets=(reader branches changes describe clientform filepath)
fi

if ! command -v clang++ >/dev/null 2>&1; then
    echo "fuzz.sh: clang++ not found: install clang and libclang-rt-dev (scripts/install-deps.sh)" >&2
    exit 3
fi

build=build-fuzz-clang
jobs=$(nproc 2>/dev/null || echo 2)
((jobs > 2)) && jobs=2
mkdir -p "$build/fuzz"
echo "== configure $build"
CC=clang CXX=clang++ cmake -S . -B "$build" -DCMAKE_BUILD_TYPE=RelWithDebInfo -DORVANE_FUZZ=ON \
    >"$build/fuzz/configure.log" 2>&1 || { cat "$build/fuzz/configure.log"; exit 1; }
echo "== build $build"
cmake --build "$build" -j "$jobs" --target $(printf 'fuzz_%s ' "${targets[@]}") >"$build/fuzz/build.log" 2>&1 ||
    { tail -n 60 "$build/fuzz/build.log"; exit 1; }

status=0
failed=()
for target in "${targets[@]}"; do
    corpus=$build/fuzz/corpus/$target
    crashes=$build/fuzz/crashes/$target
    mkdir -p "$corpus" "$crashes"
    echo "== fuzz $target for ${seconds}s"
    if ASAN_OPTIONS=detect_leaks=1:abort_on_error=1 \
        UBSAN_OPTIONS=print_stacktrace=1:halt_on_error=1 \
        "$build/tests/fuzz/fuzz_$target" -max_total_time="$seconds" -timeout=10 -rss_limit_mb=2048 \
        -dict=tests/fuzz/p4.dict -artifact_prefix="$crashes/" -print_final_stats=1 \
        "$corpus" "tests/fuzz/corpus/$target" >"$build/fuzz/$target.log" 2>&1; then
        grep -E '^(stat::number_of_executed_units|stat::peak_rss_mb)|^#[0-9]+ +DONE' "$build/fuzz/$target.log" |
            tr '\n' ' ' || true
        echo
    else
        status=1
        failed+=("$target")
        tail -n 40 "$build/fuzz/$target.log"
        echo "fuzz.sh: $target FAILED; the input is in $crashes (log: $build/fuzz/$target.log)" >&2
    fi
done

if ((status != 0)); then
    echo "fuzz.sh: FAILED: ${failed[*]}" >&2
else
    echo "fuzz.sh: ${#targets[@]} targets ran ${seconds}s each without a finding"
fi
exit $status

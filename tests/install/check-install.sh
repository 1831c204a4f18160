#!/usr/bin/env bash
# usage: check-install.sh BUILD_DIR PREFIX PROGRAM.cpp
set -euo pipefail
build=$1
prefix=$2
program=$3

rm -rf "$prefix"
cmake --install "$build" --prefix "$prefix" >/dev/null

test -f "$prefix/lib/pkgconfig/orvane-core.pc"
test -f "$prefix/include/orvane/host/VCM.h"
ls "$prefix"/lib/liborvane-core.so* >/dev/null

export PKG_CONFIG_PATH="$prefix/lib/pkgconfig"
# shellcheck disable=SC2046
c++ -o "$prefix/program" "$program" $(pkg-config --cflags --libs orvane-core)
output=$("$prefix/program")
expected='//depot/main/... has 4 items; P4Path=p4; Array index (3) out of range'
if [[ "$output" != "$expected" ]]; then
    echo "unexpected output: $output" >&2
    echo "expected:          $expected" >&2
    exit 1
fi
echo "installed library builds and runs: $output"

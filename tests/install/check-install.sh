#!/usr/bin/env bash
# usage: check-install.sh BUILD_DIR PREFIX PROGRAM.cpp MODULE_HOST.cpp
set -euo pipefail
build=$1
prefix=$2
program=$3
module_host=$4

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

# The module goes to lib/orvane and loads from there by dlopen.
test -f "$prefix/lib/orvane/liborvane-em-p4.so"
# shellcheck disable=SC2046
c++ -o "$prefix/module-host" "$module_host" $(pkg-config --cflags --libs orvane-core) -ldl
output=$("$prefix/module-host" "$prefix/lib/orvane/liborvane-em-p4.so")
expected='p4 Perforce 0 Perforce 5'
if [[ "$output" != "$expected" ]]; then
    echo "unexpected module output: $output" >&2
    echo "expected:                 $expected" >&2
    exit 1
fi
echo "installed module loads: $output"

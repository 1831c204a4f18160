#!/usr/bin/env bash
# usage: check-install.sh BUILD_DIR PREFIX PROGRAM.cpp MODULE_HOST.cpp PROVIDER.cpp
set -euo pipefail
build=$1
prefix=$2
program=$3
module_host=$4
provider=$5

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

# A module of another provider, built against the installation alone with
# the provider framework's pkg-config file, and run by the installed engine.
test -f "$prefix/lib/liborvane-mce.a"
test -f "$prefix/include/orvane/mce/ModuleEntry.h"
# shellcheck disable=SC2046
c++ -shared -o "$prefix/lib/orvane/liborvane-em-demo.so" "$provider" $(pkg-config --cflags --libs orvane-mce)
output=$("$prefix/bin/orvane-import" --provider demo --list-settings)
expected=$'NAME      KEY       DEFAULT  TYPE\nGreeting  Greeting  hello    text'
if [[ "$output" != "$expected" ]]; then
    echo "unexpected settings of the demo provider: $output" >&2
    exit 1
fi
output=$("$prefix/bin/orvane-import" --provider demo --set Greeting=hi --streams-only --quiet)
expected=$'ID  PARENT  NAME  SOURCE  DESTINATION\n1   0       hi    -       //demo/main'
if [[ "$output" != "$expected" ]]; then
    echo "unexpected streams of the demo provider: $output" >&2
    exit 1
fi
echo "a provider built against the installation runs in the installed engine"

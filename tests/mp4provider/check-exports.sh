#!/usr/bin/env bash
# usage: check-exports.sh MODULE
# The module's own dynamic symbols are exactly its two exports.
set -euo pipefail
symbols=$(nm -D --defined-only "$1" | awk '{print $3}' | sort)
expected=$'orvane_em_p4_createprovider\norvane_em_p4_getoptions'
if [[ "$symbols" != "$expected" ]]; then
    echo "exported symbols differ:" >&2
    echo "$symbols" >&2
    exit 1
fi
echo "exports: $(echo $symbols)"

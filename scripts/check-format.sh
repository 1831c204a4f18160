#!/usr/bin/env bash
# Checks that the C++ lines changed since a base commit follow .clang-format.
# usage: check-format.sh [BASE]   (default: $ORVANE_FORMAT_BASE, else the
# commit before HEAD). Uncommitted changes are checked as well. Prints the
# changes clang-format would make and exits 1 when there are any.
set -euo pipefail
root=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
cd "$root"

base=${1:-${ORVANE_FORMAT_BASE:-HEAD~1}}
if ! git rev-parse -q --verify "$base^{commit}" >/dev/null; then
    echo "check-format: no commit '$base' to compare with; nothing checked"
    exit 0
fi
tool=$(command -v git-clang-format || command -v git-clang-format-14 || true)
if [[ -z "$tool" ]]; then
    echo "check-format: git-clang-format is missing (scripts/install-deps.sh installs it)" >&2
    exit 1
fi
out=$("$tool" --diff --extensions cpp,h "$base" -- host mce mp4 engine tools tests bench 2>&1 || true)
if grep -q '^diff --git\|^@@' <<<"$out"; then
    echo "check-format: lines changed since $base do not follow .clang-format:" >&2
    echo "$out" >&2
    exit 1
fi
echo "check-format: the lines changed since $(git rev-parse --short "$base") follow .clang-format"

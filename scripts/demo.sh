#!/usr/bin/env bash
# The demo: installs the dependencies, builds orvane-import, the Perforce
# module and p4sim, makes a sample Perforce server from the history in
# engine/demo/history.json, migrates it into a new git repository with
# progress and verification (the users' real names and e-mail addresses,
# the Perforce label as a tag), and shows the streams and the history.
set -euo pipefail

root=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
cd "$root"

scripts/install-deps.sh

build=${ORVANE_DEMO_BUILD:-$root/build}
echo "== build ($build)"
mkdir -p "$build"
cmake -S . -B "$build" -DCMAKE_BUILD_TYPE=RelWithDebInfo >"$build/demo-configure.log" 2>&1 ||
    { cat "$build/demo-configure.log"; exit 1; }
cmake --build "$build" -j2 --target orvane-import orvane-em-p4 p4sim

work=$(mktemp -d "${TMPDIR:-/tmp}/orvane-demo-XXXXXX")
p4sim=$build/tools/p4sim/p4sim
import=$build/engine/orvane-import

echo
echo "== a sample Perforce server (p4sim) from engine/demo/history.json"
"$p4sim" admin load "$work/server" engine/demo/history.json
export P4PORT="sim:$work/server" P4USER=demo
unset P4CLIENT P4HOST
"$p4sim" changes
"$p4sim" users
"$p4sim" labels

echo
echo "== the streams it proposes"
"$import" --set "P4Path=$p4sim" --streams-only --graph "$work/streams.svg" --log "$work/streams.log"

echo
echo "== migrate into $work/demo.git"
"$import" --set "P4Path=$p4sim" --git "$work/demo.git" --progress --verify --labels --log "$work/import.log"

echo
echo "== git log --graph --oneline --all"
git --git-dir="$work/demo.git" log --graph --oneline --all --decorate

echo
echo "== who made the release 1 branch's changes, with the trailers"
git --git-dir="$work/demo.git" log --format='%an <%ae>  %s%n%(trailers:only)' rel1 -2

echo
echo "== the Perforce label v1.0 as a tag"
git --git-dir="$work/demo.git" cat-file tag v1.0

echo
echo "== the mainline's files"
git --git-dir="$work/demo.git" -c core.quotePath=false ls-tree -r HEAD

echo
echo "repository:   $work/demo.git"
echo "stream graph: $work/streams.svg"
echo "import log:   $work/import.log"

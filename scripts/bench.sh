#!/usr/bin/env bash
# The whole-migration benchmark: builds a release build in build-bench/, then
# for each history size (1,000, 5,000 and 20,000 changes; --quick: 1,000)
# generates a p4sim server, imports it into git with orvane-import --stats
# without and with 5 ms of latency per p4 command, and measures p4sim per
# command on that history (p4sim_bench); last the record database
# (bench-recorddb). Prints a table; writes latest.json and latest.png to
# bench/results/ (or --out DIR). One size at a time.
#
#   scripts/bench.sh [--quick] [--out DIR]
set -euo pipefail

root=$(cd "$(dirname "$0")/.." && pwd)
out=$root/bench/results
sizes=(1000 5000 20000)
latencies=(0 5)
seed=20251123
runs=10

while (($#)); do
    case $1 in
    --quick) sizes=(1000) ;;
    --out)
        out=${2:?--out needs a folder}
        shift
        ;;
    -h | --help)
        sed -n '2,10s/^# \{0,1\}//p' "$0"
        exit 0
        ;;
    *)
        echo "bench: unknown argument '$1' (see --help)" >&2
        exit 2
        ;;
    esac
    shift
done

"$root/scripts/install-deps.sh"

build=$root/build-bench
cmake -S "$root" -B "$build" -DCMAKE_BUILD_TYPE=RelWithDebInfo -DORVANE_BUILD_TESTS=OFF >"$build.configure.log"
cmake --build "$build" -j2 --target orvane-import orvane-em-p4 p4sim p4sim_bench bench-recorddb >/dev/null

import=$build/engine/orvane-import
p4sim=$build/tools/p4sim/p4sim
p4sim_bench=$build/bench/p4sim/p4sim_bench
recorddb=$build/bench/recorddb/bench-recorddb

mkdir -p "$out"
work=$(mktemp -d /tmp/orvane-bench.XXXXXX)
trap 'rm -rf "$work"' EXIT

export P4USER=bench
unset P4CLIENT P4HOST P4CONFIG P4SIM_LATENCY_MS

for n in "${sizes[@]}"; do
    server=$work/server-$n
    echo "bench: $n changes: generating the history" >&2
    "$p4sim" admin generate "$server" --changes "$n" --branches 4 --files 300 --seed "$seed" >/dev/null
    for latency in "${latencies[@]}"; do
        echo "bench: $n changes: importing, $latency ms latency per p4 command" >&2
        P4SIM_LATENCY_MS=$latency P4PORT=sim:$server "$import" --set "P4Path=$p4sim" --git "$work/git" \
            --stats "$work/import-$n-$latency.json" --quiet
        rm -rf "$work/git"
    done
    # What reading the integrations (for merge commits) costs: the same
    # import at the highest latency without them.
    latency=${latencies[-1]}
    echo "bench: $n changes: importing without merges, $latency ms latency per p4 command" >&2
    P4SIM_LATENCY_MS=$latency P4PORT=sim:$server "$import" --set "P4Path=$p4sim" --git "$work/git" \
        --stats "$work/import-$n-$latency-nomerges.json" --quiet --no-merges
    rm -rf "$work/git"
    echo "bench: $n changes: p4sim per command" >&2
    "$p4sim_bench" --changes "$n" --branches 4 --files 300 --seed "$seed" --runs "$runs" --from "$server" \
        --json "$work/p4sim-$n.json" >"$work/p4sim-$n.txt"
    rm -rf "$server"
done
echo "bench: the record database" >&2
"$recorddb" "$work/recorddb" >"$work/recorddb.txt"

joined() {
    local IFS=,
    echo "$*"
}
python3 "$root/bench/report.py" --work "$work" --sizes "$(joined "${sizes[@]}")" \
    --latencies "$(joined "${latencies[@]}")" --json "$out/latest.json" --data "$work/latest.dat"
gnuplot -e "datafile='$work/latest.dat'; outfile='$out/latest.png'; title='orvane-import on p4sim: 4 branches, 300 files ($(date -u +%Y-%m-%d), $(uname -n))'" \
    "$root/bench/plot.gp"
echo "bench: wrote $out/latest.json and $out/latest.png" >&2

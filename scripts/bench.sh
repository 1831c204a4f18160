#!/usr/bin/env bash
# The whole-migration benchmark: builds a release build in build-bench/, then
# for each history size (1,000, 5,000 and 20,000 changes; --quick: 1,000)
# generates a p4sim server, imports it into git with orvane-import --stats
# at 0 and 5 ms of latency per p4 command, and at 50 ms too for 1,000 changes
# (50 ms would take about 40 minutes at 20,000 changes: not run), the same
# at 5 ms without merges, and at 0 ms with --jobs 0 and --jobs 32 besides the
# default (the refs of the three must be the same, or the script fails,
# after the report); measures
# p4sim per command on that history (p4sim_bench); then the peak memory of
# an import of a history with one 2 GB file (not with --quick); last the
# record database (bench-recorddb). Prints a table; writes latest.json and
# latest.png to bench/results/ (or --out DIR). One size at a time.
#
# With git-p4 (--git-p4 PATH or the variable GIT_P4: git's own git-p4.py,
# run in place, with python3 when it is a Python script), git-p4 clone
# --bare --detect-branches //depot@all imports the 1,000-change history at
# 0, 5 and 50 ms too (--quick: 0 and 5 ms, as git-p4 at 50 ms takes about
# two minutes alone), with p4sim as its p4; the script prints both wall
# times, their ratio (git-p4 / ours), and which branches have the same tip
# tree in both. Without it, it says the comparison was skipped.
#
# On the 2-core development machine --quick takes about 4 minutes (half of
# it our import at 50 ms), the full run about 30.
#
#   scripts/bench.sh [--quick] [--out DIR] [--git-p4 PATH]
set -euo pipefail

root=$(cd "$(dirname "$0")/.." && pwd)
out=$root/bench/results
sizes=(1000 5000 20000)
quick=0
seed=20251123
runs=10
gitp4=${GIT_P4:-}

while (($#)); do
    case $1 in
    --quick) quick=1 ;;
    --out)
        out=${2:?--out needs a folder}
        shift
        ;;
    --git-p4)
        gitp4=${2:?--git-p4 needs the path of git-p4}
        shift
        ;;
    -h | --help)
        awk 'NR > 1 && /^#/ { sub(/^# ?/, ""); print; next } NR > 1 { exit }' "$0"
        exit 0
        ;;
    *)
        echo "bench: unknown argument '$1' (see --help)" >&2
        exit 2
        ;;
    esac
    shift
done
((quick)) && sizes=(1000)
if [[ -n $gitp4 && ! -f $gitp4 ]]; then
    echo "bench: git-p4 '$gitp4' is not a file" >&2
    exit 2
fi

# Our latencies for a history of N changes; git-p4's (on 1,000 changes).
latencies_of() {
    if (($1 == 1000)); then echo 0 5 50; else echo 0 5; fi
}
gitp4_latencies=(0 5 50)
((quick)) && gitp4_latencies=(0 5)
gitp4_size=1000
# The latency of the import without merges.
nomerges_latency=5

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
# Neither the user's nor the system's git settings (git-p4.* among them).
export GIT_CONFIG_NOSYSTEM=1 GIT_CONFIG_GLOBAL=/dev/null

if [[ -n $gitp4 ]]; then
    # git-p4 runs "p4" from PATH: here that is p4sim.
    mkdir "$work/p4bin"
    ln -s "$p4sim" "$work/p4bin/p4"
    gitp4_cmd=("$gitp4")
    if [[ $gitp4 == *.py ]] || head -n1 "$gitp4" | grep -q python; then
        gitp4_cmd=(python3 "$gitp4")
    fi
else
    echo "bench: no git-p4 given (--git-p4 PATH or GIT_P4): skipped the comparison with git-p4" >&2
fi

failed=0

now() { echo "$EPOCHREALTIME"; }
seconds() { awk -v a="$1" -v b="$2" 'BEGIN { printf "%.3f", b - a }'; }

# ours SERVER LATENCY STATS GITDIR [OPTIONS...]: one import; its wall time
# (measured as git-p4's is) on standard output.
ours() {
    local server=$1 latency=$2 stats=$3 git=$4 start
    shift 4
    start=$(now)
    P4SIM_LATENCY_MS=$latency P4PORT=sim:$server "$import" --set "P4Path=$p4sim" --git "$git" \
        --stats "$stats" --quiet "$@" >&2
    seconds "$start" "$(now)"
}

refs() { git --git-dir "$1" for-each-ref --format='%(objectname) %(refname)'; }

# gitp4_compare SERVER LATENCY OURS_GIT OURS_SECONDS: git-p4 on the same
# history, compared with our import.
gitp4_compare() {
    local server=$1 latency=$2 ours_git=$3 ours_s=$4 start status=0 flag=()
    echo "bench: $gitp4_size changes: git-p4, $latency ms latency per p4 command" >&2
    start=$(now)
    PATH=$work/p4bin:$PATH P4SIM_LATENCY_MS=$latency P4PORT=sim:$server "${gitp4_cmd[@]}" \
        clone --bare --detect-branches //depot@all "$work/gitp4-git" >"$work/gitp4-$latency.log" 2>&1 || status=$?
    local gitp4_s
    gitp4_s=$(seconds "$start" "$(now)")
    if ((status)); then
        echo "bench: git-p4 failed (exit status $status) at $latency ms; the end of its output:" >&2
        tail -n 20 "$work/gitp4-$latency.log" | tr '\r' '\n' | tail -n 20 >&2
        flag=(--gitp4-failed)
        failed=1
    fi
    python3 "$root/bench/compare_gitp4.py" --ours "$ours_git" --gitp4 "$work/gitp4-git" --changes "$gitp4_size" \
        --latency "$latency" --ours-s "$ours_s" --gitp4-s "$gitp4_s" --json "$work/gitp4-$latency.json" "${flag[@]}"
    rm -rf "$work/gitp4-git"
}

for n in "${sizes[@]}"; do
    server=$work/server-$n
    echo "bench: $n changes: generating the history" >&2
    "$p4sim" admin generate "$server" --changes "$n" --branches 4 --files 300 --seed "$seed" >/dev/null
    read -r -a latencies <<<"$(latencies_of "$n")"
    for latency in "${latencies[@]}"; do
        echo "bench: $n changes: importing, $latency ms latency per p4 command" >&2
        wall=$(ours "$server" "$latency" "$work/import-$n-$latency.json" "$work/git")
        ((latency == 0)) && refs "$work/git" >"$work/refs-$n-default.txt"
        if [[ -n $gitp4 ]] && ((n == gitp4_size)) && [[ " ${gitp4_latencies[*]} " == *" $latency "* ]]; then
            gitp4_compare "$server" "$latency" "$work/git" "$wall"
        fi
        rm -rf "$work/git"
    done
    for j in 0 32; do
        echo "bench: $n changes: importing with --jobs $j, 0 ms latency per p4 command" >&2
        ours "$server" 0 "$work/import-$n-0-jobs$j.json" "$work/git" --jobs "$j" >/dev/null
        refs "$work/git" >"$work/refs-$n-jobs$j.txt"
        rm -rf "$work/git"
    done
    # Every ref that is not the same in all three lists, with its commit
    # in each ("none" where it is missing).
    lists=("$work/refs-$n-jobs0.txt" "$work/refs-$n-default.txt" "$work/refs-$n-jobs32.txt")
    cat "${lists[@]}" | sort | uniq -c | awk '$1 != 3 { print $3 }' | sort -u |
        while read -r ref; do
            printf '%s' "$ref"
            for list in "${lists[@]}"; do
                printf ' %s' "$(awk -v ref="$ref" '$2 == ref { c = $1 } END { print c ? c : "none" }' "$list")"
            done
            echo
        done >"$work/jobs-$n.txt"
    if [[ -s $work/jobs-$n.txt ]]; then
        echo "bench: $n changes: the refs differ between --jobs 0, default and 32 (commits in that order):" >&2
        sed 's/^/bench:   /' "$work/jobs-$n.txt" >&2
        failed=1
    else
        echo "bench: $n changes: same commits with --jobs 0, default, 32" >&2
    fi
    # What reading the integrations (for merge commits) costs: the same
    # import without them.
    echo "bench: $n changes: importing without merges, $nomerges_latency ms latency per p4 command" >&2
    ours "$server" "$nomerges_latency" "$work/import-$n-$nomerges_latency-nomerges.json" "$work/git" --no-merges \
        >/dev/null
    rm -rf "$work/git"
    echo "bench: $n changes: p4sim per command" >&2
    "$p4sim_bench" --changes "$n" --branches 4 --files 300 --seed "$seed" --runs "$runs" --from "$server" \
        --json "$work/p4sim-$n.json" >"$work/p4sim-$n.txt"
    rm -rf "$server"
done

# The worker's memory with one file of 2 GB (2,000,000,000 bytes: the
# largest a -G record can carry) among a few small changes.
if ((quick)); then
    echo "bench: --quick: skipped the import of a 2 GB file" >&2
else
    echo "bench: 2 GB file: loading the history" >&2
    big_size=2000000000
    cat >"$work/big.json" <<EOF
{"changes": [
 {"user": "jo", "time": 1200000000, "description": "Small files",
  "files": [{"path": "//depot/main/a.txt", "action": "add", "content": "one\n"},
            {"path": "//depot/main/src/b.c", "action": "add", "content": "int b;\n"}]},
 {"user": "jo", "time": 1200000100, "description": "A 2 GB file",
  "files": [{"path": "//depot/main/assets/big.bin", "action": "add", "type": "binary",
             "generated": {"size": $big_size, "seed": 7}}]},
 {"user": "kim", "time": 1200000200, "description": "Edit a small file",
  "files": [{"path": "//depot/main/a.txt", "action": "edit", "content": "one\ntwo\n"}]},
 {"user": "jo", "time": 1200000300, "description": "Another small file",
  "files": [{"path": "//depot/main/src/c.c", "action": "add", "content": "int c;\n"}]},
 {"user": "kim", "time": 1200000400, "description": "Edit two small files",
  "files": [{"path": "//depot/main/a.txt", "action": "edit", "content": "one\ntwo\nthree\n"},
            {"path": "//depot/main/src/b.c", "action": "edit", "content": "int b = 1;\n"}]}
]}
EOF
    start=$(now)
    "$p4sim" admin load "$work/server-big" "$work/big.json" >/dev/null
    load_s=$(seconds "$start" "$(now)")
    echo "bench: 2 GB file: importing, 0 ms latency per p4 command" >&2
    wall=$(ours "$work/server-big" 0 "$work/import-big.json" "$work/git")
    # The size of big.bin at the tip of the branch (whatever the history's
    # one stream is called, and wherever its root lies).
    ref=$(git --git-dir "$work/git" for-each-ref --format='%(refname)' refs/heads/ | head -n1)
    git_size=$(git --git-dir "$work/git" ls-tree -r -l "$ref" | awk '$5 ~ /(^|\/)big\.bin$/ { print $4 }')
    git_size=${git_size:-0}
    printf '{"file_bytes": %d, "load_s": %s, "wall_s": %s, "git_bytes": %d}\n' "$big_size" "$load_s" "$wall" \
        "$git_size" >"$work/big-file.json"
    if ((git_size != big_size)); then
        echo "bench: 2 GB file: git has $git_size bytes of big.bin, not $big_size" >&2
        failed=1
    fi
    rm -rf "$work/git" "$work/server-big"
fi

echo "bench: the record database" >&2
"$recorddb" "$work/recorddb" >"$work/recorddb.txt"

joined() {
    local IFS=,
    echo "$*"
}
python3 "$root/bench/report.py" --work "$work" --sizes "$(joined "${sizes[@]}")" --latencies 0,5,50 \
    --json "$out/latest.json" --data "$work/latest.dat"
gnuplot -e "datafile='$work/latest.dat'; outfile='$out/latest.png'; title='orvane-import on p4sim: 4 branches, 300 files ($(date -u +%Y-%m-%d), $(uname -n))'" \
    "$root/bench/plot.gp"
echo "bench: wrote $out/latest.json and $out/latest.png" >&2
if ((failed)); then
    echo "bench: failed: see the messages above" >&2
    exit 1
fi

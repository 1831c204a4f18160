#!/usr/bin/env python3
"""Assembles the figures of scripts/bench.sh: the table on standard output,
the same as JSON, and the data of the plot.

    report.py --work DIR --sizes 1000,5000 --latencies 0,5,50 --json FILE --data FILE

DIR holds import-N-L.json (orvane-import --stats, N changes, L ms latency;
the latencies of --latencies that a size has), import-N-L-nomerges.json
(the same with --no-merges), import-N-0-jobsJ.json and jobs-N.txt (with
--jobs J, and the refs that differ between --jobs 0, the default and 32),
gitp4-L.json (bench/compare_gitp4.py: git-p4 on the same history),
import-big.json and big-file.json (the history with a 2 GB file),
p4sim-N.json (p4sim_bench --json) and recorddb.txt (bench-recorddb's output).
"""
import argparse
import datetime
import glob
import json
import os
import platform
import re
import sys


def load(path):
    with open(path, encoding="utf-8") as f:
        return json.load(f)


def machine():
    model = ""
    try:
        with open("/proc/cpuinfo", encoding="utf-8") as f:
            for line in f:
                if line.startswith("model name"):
                    model = line.split(":", 1)[1].strip()
                    break
    except OSError:
        pass
    return {"host": platform.node(), "arch": platform.machine(), "cpus": os.cpu_count(), "cpu": model,
            "kernel": platform.release()}


def import_row(size, latency, stats):
    wall = stats["wall_s"]
    changes = stats["changes"]
    ours = stats["ours_s"]
    # The server's share: the commands the worker ran and waited for, and
    # the time it waited for what was fetched ahead on other connections
    # (whose commands are counted, their time is not the worker's).
    p4 = stats["child_s"] + stats.get("fetch_wait_s", 0.0)
    return {
        "size": size, "latency_ms": latency, "changes": changes, "wall_s": wall,
        "p4_s": p4, "p4_count": stats["child_count"] + stats.get("fetch_commands", 0), "ours_s": ours,
        "ours_per_change_ms": stats["ours_per_change_ms"],
        "p4_per_change_ms": p4 * 1000.0 / changes if changes else 0.0,
        "ours_percent": 100.0 * ours / wall if wall else 0.0,
        "cpu_s": stats["cpu_s"], "peak_rss_mb": stats["peak_rss_kb"] / 1024.0,
        "staging_max_mb": stats["staging_max_bytes"] / 1048576.0,
        "child_kinds": stats["child_kinds"],
    }


RECORDDB_LINE = re.compile(r"^(\S.*?)\s+(\d+) records\s+([\d.]+) s\s+(\d+) records/s$")


def recorddb(path):
    # The database's path is a temporary one: named by its file name only.
    base = os.path.splitext(path)[0]
    phases, other = [], []
    with open(path, encoding="utf-8") as f:
        for line in f:
            line = line.rstrip("\n")
            m = RECORDDB_LINE.match(line)
            if m:
                phases.append({"phase": m.group(1), "records": int(m.group(2)), "s": float(m.group(3)),
                               "records_per_s": int(m.group(4))})
            elif line:
                other.append(line.replace(base, os.path.basename(base)))
    return {"phases": phases, "notes": other}


def print_table(report):
    print("Whole migration (orvane-import --git, p4sim server; p4 = time inside child processes)")
    head = ("changes", "lat ms", "wall s", "p4 s", "ours s", "ours/chg ms", "ours %", "cpu s", "RSS MB",
            "staging MB")
    print("| " + " | ".join(head) + " |")
    print("|" + "|".join("---:" for _ in head) + "|")
    for r in report["imports"]:
        print("| %d | %d | %.1f | %.1f | %.1f | %.2f | %.0f | %.1f | %.1f | %.1f |" % (
            r["changes"], r["latency_ms"], r["wall_s"], r["p4_s"], r["ours_s"], r["ours_per_change_ms"],
            r["ours_percent"], r["cpu_s"], r["peak_rss_mb"], r["staging_max_mb"]))
    print()
    print("Wall time per change against 0 ms latency (the same history)")
    others = [l for l in report["latencies_ms"] if l != 0]
    print("| changes | " + " | ".join("wall/chg ms at %d ms" % l for l in report["latencies_ms"]) + " | " +
          " | ".join("at %d ms / at 0 ms" % l for l in others) + " |")
    print("|---:|" + "|".join("---:" for _ in report["latencies_ms"] + others) + "|")
    for p in report["per_change"]:
        cells = ["%.2f" % p["wall_per_change_ms"][str(l)] if str(l) in p["wall_per_change_ms"] else "-"
                 for l in report["latencies_ms"]]
        cells += ["%.2f" % p["ratio_to_0ms"][str(l)] if str(l) in p["ratio_to_0ms"] else "-" for l in others]
        print("| %d | %s |" % (p["changes"], " | ".join(cells)))
    print()
    print("Child processes by kind, ms each (count)")
    kinds = sorted({k for r in report["imports"] for k in r["child_kinds"]})
    print("| changes | lat ms | " + " | ".join(kinds) + " |")
    print("|---:|---:|" + "|".join("---:" for _ in kinds) + "|")
    for r in report["imports"]:
        cells = []
        for k in kinds:
            c = r["child_kinds"].get(k)
            cells.append("%.1f (%d)" % (c["ms_each"], c["count"]) if c else "-")
        print("| %d | %d | %s |" % (r["changes"], r["latency_ms"], " | ".join(cells)))
    print()
    if report.get("merges"):
        print("Reading the integrations for merge commits (the same import with --no-merges)")
        print("| changes | lat ms | wall s with | wall s without | cost s | cost % |")
        print("|---:|---:|---:|---:|---:|---:|")
        for m in report["merges"]:
            print("| %d | %d | %.1f | %.1f | %+.1f | %+.1f |" % (m["changes"], m["latency_ms"], m["wall_s"],
                                                                 m["wall_s_without"], m["cost_s"], m["cost_percent"]))
        print()
    if report["jobs"]["runs"]:
        print("--jobs at 0 ms latency: --jobs 0, the default and --jobs 32, and whether their refs are the same")
        print("| changes | jobs | wall s | p4 s | p4 commands | RSS MB | refs |")
        print("|---:|---:|---:|---:|---:|---:|---|")
        for r in report["jobs"]["runs"]:
            print("| %d | %s | %.1f | %.1f | %d | %.1f | %s |" % (
                r["changes"], r["jobs"], r["wall_s"], r["p4_s"], r["p4_count"], r["peak_rss_mb"],
                "differ" if r["refs_differing"] else "same"))
        shown = set()
        for r in report["jobs"]["runs"]:
            if r["refs_differing"] and r["size"] not in shown:
                shown.add(r["size"])
                for d in r["refs_differing"]:
                    print("  %d changes: %s: --jobs 0 %s, default %s, --jobs 32 %s" % (
                        r["changes"], d["ref"], d["jobs0"][:12], d["default"][:12], d["jobs32"][:12]))
        print()
    else:
        print("--jobs: orvane-import has no --jobs yet: not compared")
        print()
    g = report["gitp4"]
    if g["runs"]:
        print("git-p4 (clone --bare --detect-branches //depot@all) against orvane-import, %d changes, wall s" %
              g["changes"])
        print("| lat ms | ours s | git-p4 s | git-p4 / ours | trees equal |")
        print("|---:|---:|---:|---:|---|")
        for r in g["runs"]:
            print("| %d | %.1f | %.1f | %.2f | %s |" % (
                r["latency_ms"], r["ours_s"], r["gitp4_s"], r["ratio"],
                "git-p4 failed" if not r["gitp4_ok"] else ("yes" if r["trees_equal"] else "no")))
        for r in g["runs"]:
            same = [b["depot_path"] for b in r["branches"] if b["equal"]]
            differ = [b["depot_path"] for b in r["branches"] if not b["equal"]]
            print("  %d ms: same tip tree: %s; differ: %s" % (r["latency_ms"], " ".join(same) or "none",
                                                             " ".join(differ) or "none"))
        print()
    else:
        print("git-p4: not given (--git-p4 PATH or GIT_P4): no comparison")
        print()
    m = report["memory"]
    f = m["flatness"]
    if f:
        print("Peak RSS, %d against %d changes (0 ms): %.1f MB against %.1f MB: %.2fx (target: within %.1fx, %s)" % (
            f["large_changes"], f["small_changes"], f["large_mb"], f["small_mb"], f["ratio"], f["target"],
            "met" if f["met"] else "not met"))
    else:
        print("Peak RSS, 20,000 against 1,000 changes: needs both sizes (not with --quick)")
    b = m["big_file"]
    if b:
        print("Peak RSS importing a history with a %.2f GB file: %.1f MB (target: below %d MB, %s); "
              "wall %.1f s, load %.1f s, %s" % (
                  b["file_bytes"] / 1e9, b["peak_rss_mb"], b["target_mb"], "met" if b["met"] else "not met",
                  b["wall_s"], b["load_s"],
                  "the file is whole in git" if b["git_bytes"] == b["file_bytes"] else
                  "git has %d bytes of it" % b["git_bytes"]))
    else:
        print("Peak RSS with a 2 GB file: not measured (--quick)")
    print()
    sizes = [p["changes"] for p in report["p4sim"]]
    print("p4sim per command, ms per invocation: wall / cpu / wall above the -V floor (p4sim_bench, mean of %s runs)"
          % ", ".join(str(p["runs"]) for p in report["p4sim"]))
    print("| command | " + " | ".join("%d changes" % s for s in sizes) + " |")
    print("|---|" + "|".join("---:" for _ in sizes) + "|")
    names = [c["name"] for c in report["p4sim"][0]["commands"]] if report["p4sim"] else []
    floors = [next((c["wall_ms"] for c in p["commands"] if c["name"].startswith("p4sim -V")), 0.0)
              for p in report["p4sim"]]
    for i, name in enumerate(names):
        cells = ["%.1f / %.1f / %+.1f" % (p["commands"][i]["wall_ms"], p["commands"][i]["cpu_ms"],
                                          p["commands"][i]["wall_ms"] - floor)
                 for p, floor in zip(report["p4sim"], floors)]
        print("| %s | %s |" % (name, " | ".join(cells)))
    print()
    print("Record database (bench-recorddb)")
    for p in report["recorddb"]["phases"]:
        print("  %-34s %9d records %8.3f s %12d records/s" % (p["phase"], p["records"], p["s"], p["records_per_s"]))
    for line in report["recorddb"]["notes"]:
        print("  " + line)


def write_data(report, path):
    # One line per size: changes, then per latency (0 and 5 ms, those of
    # the plot, which every size has): ours ms/change, p4 ms/change, peak
    # RSS MB, staging MB.
    latencies = [l for l in report["latencies_ms"] if l in (0, 5)]
    with open(path, "w", encoding="utf-8") as f:
        f.write("# changes" + "".join(" ours%d p4_%d rss%d staging%d" % (l, l, l, l) for l in latencies) + "\n")
        for size in report["sizes"]:
            cols = [str(size)]
            for l in latencies:
                r = row(report, size, l)
                cols += ["%.4f" % r["ours_per_change_ms"], "%.4f" % r["p4_per_change_ms"],
                         "%.2f" % r["peak_rss_mb"], "%.2f" % r["staging_max_mb"]]
            f.write(" ".join(cols) + "\n")


def row(report, size, latency):
    return next(r for r in report["imports"] if r["size"] == size and r["latency_ms"] == latency)


def per_change(report):
    """Per size: wall ms per change at each latency, and its ratio to 0 ms."""
    out = []
    for size in report["sizes"]:
        rows = {r["latency_ms"]: r for r in report["imports"] if r["size"] == size}
        walls = {str(l): 1000.0 * r["wall_s"] / r["changes"] for l, r in rows.items() if r["changes"]}
        base = walls.get("0")
        out.append({"changes": rows[min(rows)]["changes"] if rows else size, "size": size,
                    "wall_per_change_ms": walls,
                    "ratio_to_0ms": {l: w / base for l, w in walls.items() if l != "0" and base}})
    return out


def jobs_runs(report, work):
    """The imports at 0 ms with --jobs 0, the default and --jobs 32, and the
    refs that differ among them (jobs-N.txt)."""
    runs, same = [], True
    for size in report["sizes"]:
        check = os.path.join(work, "jobs-%d.txt" % size)
        if not os.path.exists(check):
            continue
        # One line per differing ref: the ref, then its commit with --jobs 0,
        # the default and --jobs 32 ("none": missing).
        with open(check, encoding="utf-8") as f:
            differing = [dict(zip(("ref", "jobs0", "default", "jobs32"), line.split())) for line in f if line.strip()]
        same = same and not differing
        for jobs in ("0", "default", "32"):
            path = os.path.join(work, "import-%d-0%s.json" % (size, "" if jobs == "default" else "-jobs" + jobs))
            r = import_row(size, 0, load(path))
            runs.append({"changes": r["changes"], "size": size, "jobs": jobs, "wall_s": r["wall_s"], "p4_s": r["p4_s"],
                         "p4_count": r["p4_count"], "peak_rss_mb": r["peak_rss_mb"], "refs_differing": differing})
    return {"runs": runs, "same_commits": same if runs else None}


def gitp4_runs(work):
    runs = []
    for path in glob.glob(os.path.join(work, "gitp4-*.json")):
        runs.append(load(path))
    runs.sort(key=lambda r: r["latency_ms"])
    return {"given": bool(runs), "changes": runs[0]["changes"] if runs else None, "runs": runs}


RSS_FLATNESS_TARGET = 1.3
BIG_FILE_RSS_TARGET_MB = 100


def memory(report, work):
    """The worker's peak RSS: the largest history against the smallest
    (0 ms, default --jobs), and the import of a history with a 2 GB file."""
    out = {"flatness": None, "big_file": None}
    sizes = sorted(report["sizes"])
    if len(sizes) > 1:
        small, large = row(report, sizes[0], 0), row(report, sizes[-1], 0)
        ratio = large["peak_rss_mb"] / small["peak_rss_mb"] if small["peak_rss_mb"] else 0.0
        out["flatness"] = {"small_changes": small["changes"], "large_changes": large["changes"],
                           "small_mb": small["peak_rss_mb"], "large_mb": large["peak_rss_mb"], "ratio": ratio,
                           "target": RSS_FLATNESS_TARGET, "met": ratio <= RSS_FLATNESS_TARGET}
    stats, info = os.path.join(work, "import-big.json"), os.path.join(work, "big-file.json")
    if os.path.exists(stats) and os.path.exists(info):
        b = load(info)
        s = load(stats)
        b.update({"peak_rss_mb": s["peak_rss_kb"] / 1024.0, "staging_max_mb": s["staging_max_bytes"] / 1048576.0,
                  "changes": s["changes"], "target_mb": BIG_FILE_RSS_TARGET_MB})
        b["met"] = b["peak_rss_mb"] < BIG_FILE_RSS_TARGET_MB
        out["big_file"] = b
    return out


def main():
    ap = argparse.ArgumentParser()
    ap.add_argument("--work", required=True)
    ap.add_argument("--sizes", required=True)
    ap.add_argument("--latencies", required=True)
    ap.add_argument("--json", required=True)
    ap.add_argument("--data", required=True)
    args = ap.parse_args()
    sizes = [int(s) for s in args.sizes.split(",")]
    latencies = [int(s) for s in args.latencies.split(",")]
    report = {
        "date": datetime.datetime.now(datetime.timezone.utc).strftime("%Y-%m-%d %H:%M UTC"),
        "machine": machine(), "sizes": sizes, "latencies_ms": [], "imports": [], "p4sim": [],
    }
    work = args.work
    for size in sizes:
        for latency in latencies:
            path = os.path.join(work, "import-%d-%d.json" % (size, latency))
            if os.path.exists(path):
                report["imports"].append(import_row(size, latency, load(path)))
                if latency not in report["latencies_ms"]:
                    report["latencies_ms"].append(latency)
        report["p4sim"].append(load(os.path.join(work, "p4sim-%d.json" % size)))
        for without in sorted(glob.glob(os.path.join(work, "import-%d-*-nomerges.json" % size))):
            latency = int(os.path.basename(without).split("-")[2])
            with_row = row(report, size, latency)
            wall_without = load(without)["wall_s"]
            report.setdefault("merges", []).append({
                "changes": with_row["changes"], "latency_ms": latency, "wall_s": with_row["wall_s"],
                "wall_s_without": wall_without, "cost_s": with_row["wall_s"] - wall_without,
                "cost_percent": 100.0 * (with_row["wall_s"] - wall_without) / wall_without if wall_without else 0.0})
    report["latencies_ms"].sort()
    report["per_change"] = per_change(report)
    report["jobs"] = jobs_runs(report, work)
    report["gitp4"] = gitp4_runs(work)
    report["memory"] = memory(report, work)
    report["recorddb"] = recorddb(os.path.join(args.work, "recorddb.txt"))
    with open(args.json, "w", encoding="utf-8") as f:
        json.dump(report, f, indent=1)
        f.write("\n")
    write_data(report, args.data)
    print_table(report)
    return 0


if __name__ == "__main__":
    sys.exit(main())

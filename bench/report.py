#!/usr/bin/env python3
"""Assembles the figures of scripts/bench.sh: the table on standard output,
the same as JSON, and the data of the plot.

    report.py --work DIR --sizes 1000,5000 --latencies 0,5 --json FILE --data FILE

DIR holds import-N-L.json (orvane-import --stats, N changes, L ms latency),
p4sim-N.json (p4sim_bench --json) and recorddb.txt (bench-recorddb's output).
"""
import argparse
import datetime
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
    return {
        "size": size, "latency_ms": latency, "changes": changes, "wall_s": wall,
        "p4_s": stats["child_s"], "p4_count": stats["child_count"], "ours_s": ours,
        "ours_per_change_ms": stats["ours_per_change_ms"],
        "p4_per_change_ms": stats["child_s"] * 1000.0 / changes if changes else 0.0,
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
    # One line per size: changes, then per latency: ours ms/change, p4
    # ms/change, peak RSS MB, staging MB.
    latencies = report["latencies_ms"]
    with open(path, "w", encoding="utf-8") as f:
        f.write("# changes" + "".join(" ours%d p4_%d rss%d staging%d" % (l, l, l, l) for l in latencies) + "\n")
        for size in report["sizes"]:
            cols = [str(size)]
            for l in latencies:
                r = next(r for r in report["imports"] if r["size"] == size and r["latency_ms"] == l)
                cols += ["%.4f" % r["ours_per_change_ms"], "%.4f" % r["p4_per_change_ms"],
                         "%.2f" % r["peak_rss_mb"], "%.2f" % r["staging_max_mb"]]
            f.write(" ".join(cols) + "\n")


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
        "machine": machine(), "sizes": sizes, "latencies_ms": latencies, "imports": [], "p4sim": [],
    }
    for size in sizes:
        for latency in latencies:
            stats = load(os.path.join(args.work, "import-%d-%d.json" % (size, latency)))
            report["imports"].append(import_row(size, latency, stats))
        report["p4sim"].append(load(os.path.join(args.work, "p4sim-%d.json" % size)))
        without = os.path.join(args.work, "import-%d-%d-nomerges.json" % (size, latencies[-1]))
        if os.path.exists(without):
            with_row = next(r for r in report["imports"] if r["size"] == size and r["latency_ms"] == latencies[-1])
            wall_without = load(without)["wall_s"]
            report.setdefault("merges", []).append({
                "changes": with_row["changes"], "latency_ms": latencies[-1], "wall_s": with_row["wall_s"],
                "wall_s_without": wall_without, "cost_s": with_row["wall_s"] - wall_without,
                "cost_percent": 100.0 * (with_row["wall_s"] - wall_without) / wall_without if wall_without else 0.0})
    report["recorddb"] = recorddb(os.path.join(args.work, "recorddb.txt"))
    with open(args.json, "w", encoding="utf-8") as f:
        json.dump(report, f, indent=1)
        f.write("\n")
    write_data(report, args.data)
    print_table(report)
    return 0


if __name__ == "__main__":
    sys.exit(main())

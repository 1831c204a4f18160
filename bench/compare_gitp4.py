#!/usr/bin/env python3
"""Compares what orvane-import and git-p4 made of the same history, branch by
branch, for scripts/bench.sh: prints one line per branch and writes the
figures as JSON.

    compare_gitp4.py --ours DIR --gitp4 DIR --changes N --latency MS --ours-s S --gitp4-s S
                     [--gitp4-failed] --json FILE

The branches are matched through the depot path their tip commits name:
orvane-import's "Perforce-Path: //depot/X/..." trailer, git-p4's
'[git-p4: depot-paths = "//depot/X/": change = N]' line. git-p4's branches
are refs/remotes/p4/* (without HEAD); orvane-import's refs/heads/*. Two
branches are equal when their tips have the same tree; for a difference the
first differing paths are named (blob names are content hashes, so the
listings of two repositories compare directly).
"""
import argparse
import json
import re
import subprocess
import sys

OURS_PATH = re.compile(r"^Perforce-Path: (//.*?)\.\.\.$", re.M)
OURS_CHANGE = re.compile(r"^Perforce-Change: (\d+)$", re.M)
GITP4_LINE = re.compile(r'\[git-p4: depot-paths = "([^"]*)": change = (\d+)')


def git(repo, *args):
    return subprocess.run(["git", "--git-dir", repo] + list(args), check=True, capture_output=True,
                          text=True, errors="surrogateescape").stdout


def tips(repo, prefix, parse):
    """{depot path: {"ref", "change", "tree", "commits"}} of the refs under prefix."""
    out = {}
    for ref in git(repo, "for-each-ref", "--format=%(refname)", prefix).split():
        if ref.endswith("/HEAD"):
            continue
        found = parse(git(repo, "log", "-1", "--format=%B", ref))
        if not found:
            continue
        path, change = found
        out[path] = {"ref": ref, "change": change, "tree": git(repo, "rev-parse", ref + "^{tree}").strip(),
                     "commits": int(git(repo, "rev-list", "--count", ref).strip())}
    return out


def parse_ours(message):
    path, change = OURS_PATH.search(message), OURS_CHANGE.search(message)
    return (path.group(1), int(change.group(1))) if path and change else None


def parse_gitp4(message):
    m = GITP4_LINE.search(message)
    return (m.group(1), int(m.group(2))) if m else None


def listing(repo, ref):
    out = {}
    for line in git(repo, "ls-tree", "-r", "--full-tree", ref).splitlines():
        meta, path = line.split("\t", 1)
        out[path] = meta
    return out


def differences(ours_repo, ours_ref, gitp4_repo, gitp4_ref, limit=5):
    a, b = listing(ours_repo, ours_ref), listing(gitp4_repo, gitp4_ref)
    paths = sorted(p for p in set(a) | set(b) if a.get(p) != b.get(p))
    return len(paths), paths[:limit]


def main():
    ap = argparse.ArgumentParser()
    ap.add_argument("--ours", required=True)
    ap.add_argument("--gitp4", required=True)
    ap.add_argument("--changes", type=int, required=True)
    ap.add_argument("--latency", type=int, required=True)
    ap.add_argument("--ours-s", type=float, required=True)
    ap.add_argument("--gitp4-s", type=float, required=True)
    ap.add_argument("--gitp4-failed", action="store_true")
    ap.add_argument("--json", required=True)
    args = ap.parse_args()
    result = {"changes": args.changes, "latency_ms": args.latency, "ours_s": args.ours_s, "gitp4_s": args.gitp4_s,
              "ratio": args.gitp4_s / args.ours_s if args.ours_s else 0.0, "gitp4_ok": not args.gitp4_failed,
              "branches": [], "trees_equal": False}
    if not args.gitp4_failed:
        ours = tips(args.ours, "refs/heads/", parse_ours)
        theirs = tips(args.gitp4, "refs/remotes/p4/", parse_gitp4)
        for path in sorted(set(ours) | set(theirs)):
            o, t = ours.get(path), theirs.get(path)
            row = {"depot_path": path, "ours_ref": o and o["ref"], "gitp4_ref": t and t["ref"],
                   "ours_change": o and o["change"], "gitp4_change": t and t["change"],
                   "ours_commits": o and o["commits"], "gitp4_commits": t and t["commits"]}
            if o and t:
                row["equal"] = o["tree"] == t["tree"]
                if not row["equal"]:
                    row["paths_differing"], row["first_paths"] = differences(args.ours, o["ref"], args.gitp4,
                                                                             t["ref"])
            else:
                row["equal"] = False
            result["branches"].append(row)
        result["trees_equal"] = bool(result["branches"]) and all(r["equal"] for r in result["branches"])
    def side(ref, change, commits):
        if not ref:
            return "no branch"
        return "%s (change %d, %d commits)" % (ref.replace("refs/heads/", "").replace("refs/remotes/", ""), change,
                                               commits)

    for r in result["branches"]:
        if r["ours_ref"] and r["gitp4_ref"]:
            state = "same tree" if r["equal"] else "trees differ in %d paths (%s)" % (
                r["paths_differing"], ", ".join(r["first_paths"]))
        else:
            state = "only in " + ("orvane-import" if r["ours_ref"] else "git-p4")
        print("bench: git-p4 at %d ms: %s: ours %s, git-p4 %s: %s" % (
            args.latency, r["depot_path"], side(r["ours_ref"], r["ours_change"], r["ours_commits"]),
            side(r["gitp4_ref"], r["gitp4_change"], r["gitp4_commits"]), state), file=sys.stderr)
    print("bench: git-p4 at %d ms: %.1f s, ours %.1f s: git-p4 / ours %.2f; %s" % (
        args.latency, args.gitp4_s, args.ours_s, result["ratio"],
        "git-p4 failed" if args.gitp4_failed else
        ("every branch has the same tree" if result["trees_equal"] else "the trees differ")), file=sys.stderr)
    with open(args.json, "w", encoding="utf-8") as f:
        json.dump(result, f, indent=1)
        f.write("\n")
    return 0


if __name__ == "__main__":
    sys.exit(main())

#!/usr/bin/env python3
"""Writes the seed corpus of the fuzz targets (tests/fuzz/corpus).

Usage: make-seeds.py P4SIM

The seeds are the real -G output of p4sim for the demo history (branches,
branch -o, changes, describe, and p4sim's broken-output modes) and a few hand
cases. Every seed starts with the mode byte of the targets (bit 0: the UTF-8
locale). Run it again after a change of p4sim's output and commit the result.
"""
import json
import os
import shutil
import struct
import subprocess
import sys
import tempfile

HERE = os.path.dirname(os.path.abspath(__file__))
ROOT = os.path.dirname(os.path.dirname(HERE))
CORPUS = os.path.join(HERE, "corpus")
SEPARATOR = b"\n=next=\n"


def marshal_string(data):
    return b"s" + struct.pack("<I", len(data)) + data


def record(pairs):
    return b"{" + b"".join(marshal_string(k) + marshal_string(v) for k, v in pairs) + b"0"


class Server:
    def __init__(self, p4sim, history):
        self.p4sim = p4sim
        self.folder = tempfile.mkdtemp(prefix="orvane-seeds-")
        self.root = os.path.join(self.folder, "server")
        subprocess.run([p4sim, "admin", "init", self.root], check=True, capture_output=True)
        subprocess.run([p4sim, "admin", "load", self.root, history], check=True, capture_output=True)

    def run(self, *args, **extra):
        env = {k: v for k, v in os.environ.items() if not k.startswith("P4")}
        env.update({"P4PORT": "sim:" + self.root, "P4USER": "tester"})
        env.update(extra)
        return subprocess.run([self.p4sim, *args], env=env, check=True, capture_output=True).stdout

    def close(self):
        shutil.rmtree(self.folder)


def write(target, name, data, modes=(0, 1)):
    folder = os.path.join(CORPUS, target)
    os.makedirs(folder, exist_ok=True)
    for mode in modes:
        with open(os.path.join(folder, "%s-%d" % (name, mode)), "wb") as out:
            out.write(bytes([mode]) + data)


def main():
    if len(sys.argv) != 2:
        sys.exit(__doc__)
    shutil.rmtree(CORPUS, ignore_errors=True)
    server = Server(sys.argv[1], os.path.join(ROOT, "engine", "demo", "history.json"))
    try:
        branches = server.run("-G", "branches")
        rel1 = server.run("-G", "branch", "-o", "rel1")
        changes = server.run("-G", "changes", "//depot/main/...")
        describes = [server.run("-G", "describe", str(n)) for n in (1, 2, 5, 9)]
        garbled = {mode: server.run("-G", "changes", "//depot/main/...", P4SIM_GARBLE="changes",
                                    P4SIM_GARBLE_MODE=mode) for mode in ("cut", "type", "length")}
    finally:
        server.close()

    # The reader: every kind of real output, broken output, hand cases.
    for name, data in [("branches", branches), ("branch-o", rel1), ("changes", changes),
                       ("describe", describes[0])] + [("garbled-" + m, d) for m, d in garbled.items()]:
        write("reader", name, data)
    write("reader", "empty-records", b"{0{0")
    write("reader", "integer-value", b"{" + marshal_string(b"level") + b"i" + struct.pack("<I", 7) + b"0")
    write("reader", "utf8-body", record([(b"desc", "Ünïcödé ☃".encode())]))
    write("reader", "nul-in-body", record([(b"desc", b"cut\0here")]))
    write("reader", "error-output", b"p4sim: no such thing\nsecond line\n", modes=(2, 3))

    # The branch readers: the listing and rel1's spec for every branch.
    write("branches", "demo", branches + SEPARATOR + rel1)
    write("branches", "views", record([(b"branch", b"b 1")]) + SEPARATOR +
          record([(b"Description", b"two\nlines\n"), (b"View0", b"//depot/main/... //depot/b/..."),
                  (b"View1", b"\"//depot/main/a b/...\" //depot/main/x/..."), (b"View2", b"-//depot/main/y/...")]))

    write("changes", "demo", changes)
    for mode, data in garbled.items():
        write("changes", "garbled-" + mode, data)
    write("changes", "no-number", record([(b"change", b"x"), (b"user", b"ada")]) + record([(b"change", b"12")]))

    for n, data in zip((1, 2, 5, 9), describes):
        write("describe", "demo-%d" % n, data)
    # Escapes that decode, one that decodes to '%' and then to '@', one that is no escape.
    write("describe", "escapes", record([
        (b"desc", b"escapes\n"), (b"depotFile0", b"//depot/main/a%40b%2a"), (b"action0", b"add"),
        (b"type0", b"text"), (b"rev0", b"1"), (b"depotFile1", b"//depot/main/%2540"), (b"action1", b"edit"),
        (b"type1", b"text"), (b"rev1", b"2"), (b"depotFile2", b"//depot/main/%zz/x"), (b"action2", b"delete"),
        (b"type2", b"text"), (b"rev2", b"3")]))

    # The client form writer: the bytes are read as lengths, characters and numbers.
    def text(chars):
        return bytes([len(chars)]) + bytes(chars)
    write("clientform", "plain", text(b"orvane-ws") + text(b"tester") + text(b"") + text(b"Made for a test\n") +
          text(b"/tmp/ws") + struct.pack("<I", 0x55) + bytes([1, 2]) + text(b"//depot/main") +
          text(b"//orvane-ws/main") + text(b"//depot/rel1") + text(b"//orvane-ws/rel1"))
    write("clientform", "odd", text(b"a b\"c\x00d") + text(b"\xf0\xff\xff\x10\x00") + text(b"\xe9") +
          text(b"\n\n") + text(b"rel/") + struct.pack("<I", 0xFFFFFFFF) + bytes([7, 1]) + text(b"//") +
          text(b"/"))

    write("filepath", "depot", b"//depot/main/a.txt" + SEPARATOR + b"//depot/main", modes=(0, 4))
    write("filepath", "local", b"/tmp/ws/main/" + SEPARATOR + b"/tmp", modes=(0, 4))
    write("filepath", "relative", b"a/b/c.txt" + SEPARATOR + b"d\0e", modes=(0, 4))
    write("filepath", "refused", b"a//b" + SEPARATOR + b"", modes=(0, 4))
    wide = lambda s: b"".join(struct.pack("<I", ord(c)) for c in s)
    write("filepath", "wide", wide("//dépôt/☃/x") + SEPARATOR + wide("//dépôt"), modes=(2, 6))
    return 0


if __name__ == "__main__":
    sys.exit(main())

#!/usr/bin/env python3
"""Checks the independent format reader against a list file written by CInvMap.

    check_reader.py FIXTURE READER WORKDIR

Runs FIXTURE to write a list file of 1000 mixed records and the JSON of what it
holds, decodes the list file with READER ("map" command), and compares keys,
classes, schemas and every field. Exit 77 (skipped) when READER is missing.
"""

import json
import os
import subprocess
import sys


def main(fixture, reader, workdir):
    if not os.path.exists(reader):
        print("reader %s not found" % reader)
        return 77
    os.makedirs(workdir, exist_ok=True)
    list_file = os.path.join(workdir, "SWPackage.bin")
    expected_file = os.path.join(workdir, "expected.json")
    subprocess.run([fixture, list_file, expected_file], check=True)
    with open(expected_file, encoding="utf-8") as f:
        expected = json.load(f)
    out = subprocess.run([sys.executable, reader, "map", list_file],
                         check=True, capture_output=True, text=True, encoding="utf-8").stdout
    decoded = json.loads(out)

    problems = []
    if decoded["count"] != expected["count"] or len(decoded["entries"]) != len(expected["entries"]):
        problems.append("count %s/%d, expected %d" % (decoded["count"], len(decoded["entries"]),
                                                      expected["count"]))
    for got, want in zip(decoded["entries"], expected["entries"]):
        for name in ("key", "class", "schema", "fields"):
            if got.get(name) != want[name]:
                problems.append("entry %r: %s is %r, expected %r"
                                % (want["key"][:40], name, got.get(name), want[name]))
    for p in problems[:20]:
        print(p)
    if problems:
        print("%d differences" % len(problems))
        return 1
    print("reader agrees on %d entries" % len(expected["entries"]))
    return 0


if __name__ == "__main__":
    sys.exit(main(*sys.argv[1:4]))

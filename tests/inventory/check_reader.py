#!/usr/bin/env python3
# check_reader.py FIXTURE READER WORKDIR: READER ("map") must decode the list file of 1000 mixed
# records that FIXTURE writes to the keys, classes, schemas and fields FIXTURE reports in JSON.
import json, os, subprocess, sys

fixture, reader, workdir = sys.argv[1:4]
os.makedirs(workdir, exist_ok=True)
list_file, expected_file = os.path.join(workdir, "SWPackage.bin"), os.path.join(workdir, "expected.json")
subprocess.run([fixture, list_file, expected_file], check=True)
with open(expected_file, encoding="utf-8") as f:
    want = {e["key"]: e for e in json.load(f)}
decoded = json.loads(subprocess.run([sys.executable, reader, "map", list_file], check=True,
                                    capture_output=True, text=True, encoding="utf-8").stdout)
got = {e["key"]: {k: e.get(k) for k in ("key", "class", "schema", "fields")} for e in decoded["entries"]}
bad = [k for k in want if got.get(k) != want[k]]
for k in bad[:10]:
    print("entry %r: decoded %r, expected %r" % (k[:40], got.get(k), want[k]))
ok = not bad and len(want) == len(got) == len(decoded["entries"]) == decoded["count"] == 1000
print("reader agrees on %d entries" % len(got) if ok else "%d of %d entries differ" % (len(bad), len(want)))
sys.exit(0 if ok else 1)

#!/usr/bin/env python3
"""Runs bench_inventory and prints the two inventory-map figures side by side:
per-record time of diff + ToMemory at 100k against 10k records, and the 100k
time against zlib level 9 of the same block. Each figure is the fastest of the
repetitions, the least disturbed one on a shared machine.

usage: inventory_scaling.py [path/to/bench_inventory] [repetitions]
Exits 1 when a figure of BM_DiffAndToMemory misses (ratio over 1.5, or not faster
than the compression)."""
import json
import subprocess
import sys

bench = sys.argv[1] if len(sys.argv) > 1 else "build/bench/bench_inventory"
reps = sys.argv[2] if len(sys.argv) > 2 else "5"
out = subprocess.run(
    [bench, "--benchmark_filter=DiffAndToMemory|Compress9", "--benchmark_format=json",
     f"--benchmark_repetitions={reps}", "--benchmark_report_aggregates_only=false"],
    check=True, capture_output=True, text=True).stdout

fastest = {}   # (benchmark, records) -> (ms, ns per record)
for run in json.loads(out)["benchmarks"]:
    if run.get("run_type") != "iteration":
        continue
    name, records = run["run_name"].split("/")
    ms = run["real_time"] if run["time_unit"] == "ms" else run["real_time"] / 1e6
    key = (name, int(records))
    if key not in fastest or ms < fastest[key][0]:
        fastest[key] = (ms, ms * 1e6 / int(records))

ok = True
for name in ("BM_DiffAndToMemory", "BM_DiffAndToMemoryCached"):
    small, large = fastest[(name, 10000)][1], fastest[(name, 100000)][1]
    ratio = large / small
    print(f"{name:26} {small:7.0f} ns/record at 10k, {large:7.0f} at 100k: x{ratio:.2f}")
    if name == "BM_DiffAndToMemory":
        ok &= ratio <= 1.5
diff_ms, zlib_ms = fastest[("BM_DiffAndToMemory", 100000)][0], fastest[("BM_Compress9", 100000)][0]
print(f"100k records: diff + ToMemory {diff_ms:.1f} ms, zlib level 9 of the block {zlib_ms:.1f} ms")
ok &= diff_ms < zlib_ms
sys.exit(0 if ok else 1)

#!/usr/bin/env python3
"""run_cost.py SWINV [--rounds N] [--include DIR]: what an inventory run costs, for the settings an operator meets.

Each variant gets a home of its own with its settings and a stored baseline; the variants of one comparison then run
in turn (A B C A B C ...), so that a machine whose speed drifts slows them all alike, and the script prints each
one's median wall time and its ratio to the first. Comparisons, on this machine's real package manager:
  default    the default settings (one batch query)     against BatchQuery 0 (a query per package)
  walks      Mode 1 (packages only)                      against Mode 3 over --include (default /usr) with logging
             off, which walks nothing since no walk can change the reply, and with logging on, which walks
Exits 1 when the default run is not at least 250 times faster than BatchQuery 0, or when Mode 3 with logging off
costs more than 1.5 times Mode 1. Use a Release build."""
import argparse, os, statistics, subprocess, sys, tempfile, time

def run(swinv, home, *args):
    subprocess.run([swinv, "--home", home] + list(args), check=True, stdout=subprocess.DEVNULL,
                   stderr=subprocess.DEVNULL)


def compare(swinv, tmp, name, variants, rounds):
    """variants: [(label, settings text, rounds it runs in)]; returns {label: median seconds}."""
    homes = {}
    for label, settings, _ in variants:
        homes[label] = os.path.join(tmp, name, label.replace(" ", "_").replace(",", "")) + "/"
        run(swinv, homes[label], "config", settings)
        run(swinv, homes[label], "run", "--ack")   # the stored baseline, and a warm cache
    times = {label: [] for label, _, _ in variants}
    for round_number in range(rounds):
        for label, _, every in variants:
            if round_number % every == 0:
                start = time.perf_counter()
                run(swinv, homes[label], "run")
                times[label].append(time.perf_counter() - start)
    medians = {label: statistics.median(values) for label, values in times.items()}
    first = variants[0][0]
    print("\n%s:" % name)
    for label, _, _ in variants:
        print("  %-28s median %10.1f ms of %2d runs   %8.2f x %s" %
              (label, medians[label] * 1e3, len(times[label]), medians[label] / medians[first], first))
    return medians


def main():
    parser = argparse.ArgumentParser(description=__doc__.split("\n\n")[0])
    parser.add_argument("swinv")
    parser.add_argument("--rounds", type=int, default=9, help="rounds of the fast variants")
    parser.add_argument("--slow-every", type=int, default=3, help="BatchQuery 0 runs in every K-th round only")
    parser.add_argument("--include", default="/usr", help="the folders of the Mode 3 walk")
    options = parser.parse_args()
    packages = subprocess.run(["dpkg-query", "--show", "--showformat", "${Package}\n"], capture_output=True,
                              text=True).stdout.count("\n")
    entries = sum(len(dirs) + len(files) for _, dirs, files in os.walk(options.include))
    print("machine: %d cores, %d packages; %s holds %d entries" % (os.cpu_count(), packages, options.include, entries))
    with tempfile.TemporaryDirectory(prefix="zev-run-cost-") as tmp:
        default = compare(options.swinv, tmp, "default", [("default", 'Mode="1"', 1),
                                                          ("BatchQuery 0", 'BatchQuery="0"', options.slow_every)],
                          options.rounds)
        include = 'Mode="3"; Include="%s"' % options.include
        walks = compare(options.swinv, tmp, "walks", [("Mode 1", 'Mode="1"', 1), ("Mode 3, logging off", include, 1),
                                                      ("Mode 3, logging on", include + '; Logging="1"', 1)],
                        options.rounds)
    speedup, walk_ratio = default["BatchQuery 0"] / default["default"], walks["Mode 3, logging off"] / walks["Mode 1"]
    print("\ndefault run against BatchQuery 0: %.0f times faster (goal >= 250)" % speedup)
    print("Mode 3 with logging off against Mode 1: %.2f x (goal <= 1.5)" % walk_ratio)
    return 0 if speedup >= 250 and walk_ratio <= 1.5 else 1


if __name__ == "__main__":
    sys.exit(main())

#!/usr/bin/env python3
"""batch_query.py SWINV [--rounds N] [--batch-runs K]: the package scan asked once per package ("BatchQuery" 0)
against one batch query ("BatchQuery" 1), on this machine's real package manager.

Runs `SWINV run` against one temporary home that holds a stored baseline, alternating the two settings: each round
is one per-package run and then K batch runs. It prints the median wall time of each setting and their ratio, and
the time of the batch run's own package-manager commands (exactly the command lines the component ran, caught with
strace) run alone from one shell. Exits 1 when batch mode is not at least 250 times faster than the per-package
scan, or when a batch run costs more than twice its own commands alone. Use a Release build."""
import argparse, os, re, shutil, statistics, subprocess, sys, tempfile, time

SPEEDUP_GOAL, OVERHEAD_GOAL = 250.0, 2.0


def timed(argv):
    start = time.perf_counter()
    subprocess.run(argv, check=True, stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
    return time.perf_counter() - start


def shell_commands(swinv, home, trace):
    """The command lines the component hands to the shell during one run, byte for byte."""
    subprocess.run(["strace", "-f", "-qq", "-xx", "-s", "100000000", "-e", "trace=execve", "-o", trace,
                    swinv, "--home", home, "run"], check=True, stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
    commands = []
    with open(trace, encoding="ascii") as lines:
        for line in lines:
            if "execve(" not in line:
                continue
            words = [bytes.fromhex(w.replace("\\x", "")) for w in re.findall(r'"((?:\\x[0-9a-f]{2})*)"', line)]
            if len(words) >= 4 and os.path.basename(words[0]) == b"sh" and words[2] == b"-c":
                commands.append(words[3])
    return commands


def shown(command, limit=160):
    text = command.decode("latin-1").encode("unicode_escape").decode("ascii")
    return text if len(text) <= limit else "%s... [%d bytes, %d words]" % (text[:limit], len(command), len(command.split()))


def main():
    parser = argparse.ArgumentParser(description=__doc__.split("\n\n")[0])
    parser.add_argument("swinv")
    parser.add_argument("--rounds", type=int, default=3, help="per-package runs, each followed by the batch runs")
    parser.add_argument("--batch-runs", type=int, default=5, help="batch runs per round")
    parser.add_argument("--full-commands", action="store_true", help="print the command lines whole")
    options = parser.parse_args()
    if not shutil.which("strace"):
        sys.exit("batch_query.py: strace is needed to catch the component's command lines")

    with tempfile.TemporaryDirectory(prefix="zev-batch-bench-") as tmp:
        home = os.path.join(tmp, "home")
        swinv = [options.swinv, "--home", home]
        config = lambda value: subprocess.run(swinv + ["config", 'BatchQuery="%d"' % value], check=True,
                                              stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
        config(1)
        subprocess.run(swinv + ["run", "--ack"], check=True, stdout=subprocess.DEVNULL)   # the stored baseline
        commands = shell_commands(options.swinv, home, os.path.join(tmp, "trace"))
        script = os.path.join(tmp, "commands.sh")
        with open(script, "wb") as out:
            out.write(b"".join(c + b" >/dev/null\n" for c in commands))

        per_package, batch, alone = [], [], []
        for round_number in range(options.rounds):
            config(0)
            per_package.append(timed(swinv + ["run"]))
            config(1)
            for _ in range(options.batch_runs):
                batch.append(timed(swinv + ["run"]))
                alone.append(timed(["sh", script]))
            print("round %d: per-package %.2f s, batch median so far %.1f ms" %
                  (round_number + 1, per_package[-1], statistics.median(batch) * 1e3), flush=True)

    slow, fast, bare = (statistics.median(v) for v in (per_package, batch, alone))
    print("\nbatch mode's package-manager commands (%d):" % len(commands))
    for command in commands:
        print("  " + (command.decode("latin-1").encode("unicode_escape").decode("ascii") if options.full_commands
                      else shown(command)))
    print("\nper-package scan:  median %8.1f ms of %d runs" % (slow * 1e3, len(per_package)))
    print("batch query:       median %8.1f ms of %d runs" % (fast * 1e3, len(batch)))
    print("commands alone:    median %8.1f ms of %d runs (one shell running them)" % (bare * 1e3, len(alone)))
    print("speed-up:          %8.1f x  (goal >= %.0f x)" % (slow / fast, SPEEDUP_GOAL))
    print("batch run / alone: %8.2f x  (goal <= %.0f x)" % (fast / bare, OVERHEAD_GOAL))
    return 0 if slow / fast >= SPEEDUP_GOAL and fast / bare <= OVERHEAD_GOAL else 1


if __name__ == "__main__":
    sys.exit(main())

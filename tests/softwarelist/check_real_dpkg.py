#!/usr/bin/env python3
"""End-to-end check against this machine's own package database.

Runs the driver (one inventory run with Mode 1 in a fresh home, the reply saved,
then DataSent), asks dpkg-query itself for every installed package, applies the
package scan's key and parsing rules independently, and compares the result with
what the independent reader finds in the reply and in "SWPackage.bin".
Exit status 77 (skipped) where there is no dpkg database or a Halvorn product
folder is installed (its records would join the expected packages).
"""
import argparse
import json
import os
import re
import shutil
import subprocess
import sys
import tempfile

LIST_COMMAND = "dpkg-query --show --showformat '${Package}\n'"
QUERY_FORMAT = "dpkg-query --show --showformat '${Package}^${Version}^${Description}^${Origin}' %s"
PIECE = 799          # fgets into an 800-byte buffer
COMMAND_LIMIT = 799  # snprintf into an 800-byte buffer
VERSION_CHARS = b"0123456789.-"
PRODUCT_MARKERS = [
    "/usr/qor/daemon/clientdaemon", "/opt/Halvorn/HalvornOrbis/bin/Client", "/opt/Halvorn/HalvornPavo/bin/Pavo",
    "/opt/Halvorn/HalvornPavo/bin/Client", "/usr/cir/daemon/cirrodaemon", "/usr/pgs/daemon/cirrodaemon",
    "/usr/mgl/daemon/cirrodaemon", "/usr/dra/daemon/cirrodaemon",
]
SKIP = 77


def shell(command):
    """Runs a command line through /bin/sh; (success, whole standard output)."""
    done = subprocess.run(command, shell=True, stdout=subprocess.PIPE, stderr=subprocess.DEVNULL)
    return done.returncode == 0, done.stdout


def pieces(output):
    """Lines as fgets with an 800-byte buffer delivers them, one final newline removed."""
    lines, pos = [], 0
    while pos < len(output):
        end = output.find(b"\n", pos)
        stop = len(output) if end < 0 else end + 1
        piece = output[pos:min(stop, pos + PIECE)]
        pos += len(piece)
        lines.append(piece[:-1] if piece.endswith(b"\n") else piece)
    return lines


def cut_version_suffix(name):
    """kernel-2.6.18 -> kernel; libfoo2, bash and names made only of version characters stay."""
    last = len(name) - 1
    while last >= 0 and name[last] in VERSION_CHARS:
        last -= 1
    if last < 0 or last == len(name) - 1:
        return name
    dash = name.find(b"-", last)
    return name[:dash] if dash >= 0 else name


def expected_packages():
    ok, listing = shell(LIST_COMMAND)
    if not ok:
        raise SystemExit("the list command failed")
    records = {}
    for line in pieces(listing):
        command = (QUERY_FORMAT % line.decode("latin-1")).encode("latin-1")[:COMMAND_LIMIT]
        ok, out = shell(command)
        if not ok:
            continue
        first = out.find(b"^")
        second = out.find(b"^", first + 1) if first >= 0 else -1
        if second < 0:
            continue
        name, version = out[:first], out[first + 1:second]
        third = out.find(b"^", second + 1)
        if third < 0:
            summary, company = out[second + 1:], out
        else:
            summary, company = out[second + 1:third], out[third + 1:]
        key = line + b"\\" + company + b"\\" + version
        if not company:
            company = b" "
        summary = summary.split(b"\n", 1)[0]
        records[key] = {
            "m_strName": cut_version_suffix(name), "m_strVersion": version, "m_strVendor": company,
            "m_strExtra1": b"", "m_strExtra2": b"", "m_nFlags": 128, "m_strDescription": summary,
        }
    return records


def read(reader, *args):
    done = subprocess.run([sys.executable, reader, *args], capture_output=True, text=True)
    if done.returncode != 0:
        raise SystemExit("zevreader %s: %s" % (" ".join(args), done.stderr.strip()))
    return json.loads(done.stdout)


def compare_map(what, decoded, expected, problems):
    entries = decoded["entries"]
    keys = [e["key"].encode("latin-1") for e in entries]
    if keys != sorted(expected):
        missing = sorted(set(expected) - set(keys))[:5]
        extra = sorted(set(keys) - set(expected))[:5]
        problems.append("%s: %d keys, expected %d; missing %s; unexpected %s"
                        % (what, len(keys), len(expected), missing, extra))
    for entry in entries:
        key = entry["key"].encode("latin-1")
        if key not in expected:
            continue
        if entry["class"] != "CSoftwarePackageObject" or entry["schema"] != 2:
            problems.append("%s %r: class %s schema %s" % (what, key, entry["class"], entry["schema"]))
            continue
        for field, want in expected[key].items():
            got = entry["fields"].get(field)
            if isinstance(want, bytes):
                got = got.encode("latin-1") if isinstance(got, str) else got
            if got != want:
                problems.append("%s %r: %s is %r, expected %r" % (what, key, field, got, want))


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("--driver", required=True)
    parser.add_argument("--reader", required=True)
    args = parser.parse_args()

    if not shutil.which("dpkg-query") or not (os.path.exists("/etc/debian_version")
                                              or os.path.exists("/etc/debian-release")):
        print("no dpkg database on this machine")
        return SKIP
    present = [m for m in PRODUCT_MARKERS if os.path.lexists(m)]
    if present:
        print("Halvorn products installed (%s); their records are not modelled here" % ", ".join(present))
        return SKIP

    home = tempfile.mkdtemp(prefix="zevdpkg.") + "/"
    try:
        os.makedirs(home + "data")
        os.makedirs(home + "bin")
        with open(home + "data/.Software_Inventory_Config", "w") as config:
            config.write("Mode=1\n")
        reply_file = home + "reply.bin"
        env = dict(os.environ)
        env.pop("ZEV_FAKE_DPKG", None)
        run = subprocess.run([args.driver, home, reply_file], env=env)
        if run.returncode != 0:
            print("driver failed with status %d" % run.returncode)
            return 1
        expected = expected_packages()

        problems = []
        reply = read(args.reader, "reply", reply_file, "--skip", "0")
        if not re.fullmatch(r"\d\d [A-Z][a-z]{2} \d{4} \d\d:\d\d:\d\d", reply["scan_time"]):
            problems.append("scan time %r" % reply["scan_time"])
        for part in ("add", "delete", "change", "empty"):
            if reply["software"][part]["count"] != 0:
                problems.append("software %s map holds %d entries" % (part, reply["software"][part]["count"]))
        for part in ("delete", "change"):
            if reply["packages"][part]["count"] != 0:
                problems.append("package %s map holds %d entries" % (part, reply["packages"][part]["count"]))
        if reply["software"]["full"] != 1 or reply["packages"]["full"] != 1:
            problems.append("first run flags %s/%s" % (reply["software"]["full"], reply["packages"]["full"]))
        compare_map("reply package add map", reply["packages"]["add"], expected, problems)
        compare_map("SWPackage.bin", read(args.reader, "map", home + "data/SWPackage.bin"), expected, problems)
        if read(args.reader, "map", home + "data/SWList.bin")["count"] != 0:
            problems.append("SWList.bin is not an empty map")

        for p in problems[:40]:
            print(p)
        print("%d packages compared, %d problems" % (len(expected), len(problems)))
        return 1 if problems else 0
    finally:
        shutil.rmtree(home, ignore_errors=True)


if __name__ == "__main__":
    sys.exit(main())

#!/usr/bin/env python3
"""check_real_dpkg.py READER HOME: the reply ("reply.bin") and "data/SWPackage.bin" of a Mode 1 run
hold exactly the packages dpkg-query reports, keyed and parsed by the package scan's rules.
Exit status 77 without a dpkg database or with a Halvorn product installed."""
import json
import os
import subprocess
import sys

QUERY = "dpkg-query --show --showformat '${Package}^${Version}^${Description}^${Origin}' "
MARKERS = ["/usr/qor/daemon/clientdaemon", "/opt/Halvorn/HalvornOrbis/bin/Client", "/opt/Halvorn/HalvornPavo/bin/Pavo",
           "/opt/Halvorn/HalvornPavo/bin/Client"] + ["/usr/%s/daemon/cirrodaemon" % d for d in ("cir", "pgs", "mgl", "dra")]


def shell(command):
    done = subprocess.run(command, shell=True, stdout=subprocess.PIPE, stderr=subprocess.DEVNULL)
    return done.returncode == 0, done.stdout


def cut_suffix(name):
    """kernel-2.6.18 -> kernel; libfoo2, bash and names of version characters only stay."""
    stem = name.rstrip(b"0123456789.-")
    dash = name.find(b"-", len(stem)) if stem and stem != name else -1
    return name[:dash] if dash >= 0 else name


def expected_packages():
    ok, listing = shell("dpkg-query --show --showformat '${Package}\n'")
    records = {}
    for line in listing.splitlines():
        ok, out = shell(QUERY + line.decode("latin-1"))
        parts = out.split(b"^", 3)
        if not ok or len(parts) < 3:
            continue
        company = parts[3] if len(parts) == 4 else out   # no third "^": the whole output
        records[line + b"\\" + company + b"\\" + parts[1]] = {
            "m_strName": cut_suffix(parts[0]), "m_strVersion": parts[1], "m_strVendor": company or b" ",
            "m_strExtra1": b"", "m_strExtra2": b"", "m_nFlags": 128, "m_strDescription": parts[2].split(b"\n")[0]}
    return records


def read(reader, *args):
    return json.loads(subprocess.run([sys.executable, reader, *args], check=True, stdout=subprocess.PIPE).stdout)


def compare(what, decoded, expected, problems):
    keys = [e["key"].encode("latin-1") for e in decoded["entries"]]
    if keys != sorted(expected):
        problems.append("%s: %d keys, expected %d; missing %s; unexpected %s" % (
            what, len(keys), len(expected), sorted(set(expected) - set(keys))[:5], sorted(set(keys) - set(expected))[:5]))
    for entry in decoded["entries"]:
        want = expected.get(entry["key"].encode("latin-1"), {})
        if want and (entry["class"], entry["schema"]) != ("CSoftwarePackageObject", 2):
            problems.append("%s %r: class %s schema %s" % (what, entry["key"], entry["class"], entry["schema"]))
        for field, value in want.items():
            got = entry["fields"].get(field)
            if (got.encode("latin-1") if isinstance(got, str) else got) != value:
                problems.append("%s %r: %s is %r, expected %r" % (what, entry["key"], field, got, value))


def main():
    reader, home = sys.argv[1], sys.argv[2]
    if not (os.path.exists("/etc/debian_version") or os.path.exists("/etc/debian-release")) or any(
            os.path.lexists(m) for m in MARKERS):
        return 77
    expected, problems = expected_packages(), []
    reply = read(reader, "reply", home + "reply.bin")
    counts = [reply["software"][p]["count"] for p in ("add", "delete", "change", "empty")] + [
        reply["packages"][p]["count"] for p in ("delete", "change")] + [read(reader, "map", home + "data/SWList.bin")["count"]]
    if counts != [0] * 7 or (reply["software"]["full"], reply["packages"]["full"]) != (1, 1):
        problems.append("other maps hold %s entries; full flags %s/%s" % (counts, reply["software"]["full"], reply["packages"]["full"]))
    compare("reply package add map", reply["packages"]["add"], expected, problems)
    compare("SWPackage.bin", read(reader, "map", home + "data/SWPackage.bin"), expected, problems)
    print("\n".join(problems[:40] + ["%d packages compared, %d problems" % (len(expected), len(problems))]))
    return 1 if problems else 0


if __name__ == "__main__":
    sys.exit(main())

#!/usr/bin/env python3
"""check_real_dpkg.py READER_DIR HOME: the reply ("reply.bin") and "data/SWPackage.bin" of a Mode 1 run hold exactly the
packages dpkg-query reports, keyed and parsed by the package scan's rules; 77 without dpkg or with a Halvorn product."""
import json, os, subprocess, sys

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
    records = {}
    for line in shell("dpkg-query --show --showformat '${Package}\n'")[1].splitlines():
        ok, out = shell(QUERY + line.decode("latin-1"))
        parts = out.split(b"^", 3)
        if ok and len(parts) >= 3:
            company = parts[3] if len(parts) == 4 else out   # no third "^": the whole output
            records[line + b"\\" + company + b"\\" + parts[1]] = ("CSoftwarePackageObject", 2, {
                "m_strName": cut_suffix(parts[0]), "m_strVersion": parts[1], "m_strVendor": company or b" ",
                "m_strExtra1": b"", "m_strExtra2": b"", "m_nFlags": 128, "m_strDescription": parts[2].split(b"\n")[0]})
    return sorted(records.items())


def compare(what, decoded, expected):
    text = lambda v: v.encode("latin-1") if isinstance(v, str) else v
    got = [(text(e["key"]), (e["class"], e["schema"], {f: text(v) for f, v in e["fields"].items()})) for e in decoded["entries"]]
    return [] if got == expected else ["%s: %d entries, expected %d; unexpected: %r" % (
        what, len(got), len(expected), [entry for entry in got if entry not in expected][:5])]


def main():
    reader_dir, home = sys.argv[1], sys.argv[2]   # the independent reader's package folder
    read = lambda *args: json.loads(subprocess.run([sys.executable, "-m", "zevreader", *args], check=True, stdout=subprocess.PIPE,
                                                   env=dict(os.environ, PYTHONPATH=reader_dir)).stdout)
    if not any(map(os.path.exists, ("/etc/debian_version", "/etc/debian-release"))) or any(map(os.path.lexists, MARKERS)):
        return 77
    expected, reply = expected_packages(), read("reply", home + "reply.bin")
    software, packages = reply["software"], reply["packages"]
    others = [software[p]["count"] for p in ("add", "delete", "change", "empty")] + [packages[p]["count"] for p in ("delete", "change")]
    others += [read("map", home + "data/SWList.bin")["count"], software["full"], packages["full"]]
    problems = [] if others == [0] * 7 + [1, 1] else ["other maps' entries and the full flags: %s, expected 7 x 0, 1, 1" % others]
    problems += compare("reply package add map", packages["add"], expected)
    problems += compare("SWPackage.bin", read("map", home + "data/SWPackage.bin"), expected)
    print("\n".join(problems + ["%d packages compared, %d problems" % (len(expected), len(problems))]))
    return 1 if problems else 0


if __name__ == "__main__":
    sys.exit(main())

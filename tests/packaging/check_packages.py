#!/usr/bin/env python3
"""check_packages.py PACKAGE_DIR: checks the packages cpack built in PACKAGE_DIR as an operator meets them.
- lintian finds no error or warning in either .deb (its overrides are printed with their reasons);
- the control fields, the stripped binaries and the file lists of runtime and -dev;
- dpkg -i of both .debs, then the installed swinv and zevreader, then dpkg -r, inside a private mount
  namespace whose /usr, /etc, /var/lib/dpkg, /var/log and /var/cache are overlays, so the machine itself
  never changes (root only);
- the .rpm files' metadata and file lists through rpm -qip and rpm -qlp."""
import glob, hashlib, json, os, re, shutil, subprocess, sys, tempfile, unittest

PACKAGE_DIR = os.path.abspath(sys.argv.pop(1)) if len(sys.argv) > 1 and not sys.argv[1].startswith("-") else ""
NAME = "zev-software"
# The folders dpkg and its triggers write to; each gets an overlay inside the namespace.
OVERLAID = ["/usr", "/etc", "/var/lib/dpkg", "/var/log", "/var/cache"]
RUNTIME_FILES = ["/usr/zev/slib/libsoftware.so.0", "/usr/bin/swinv", "/usr/bin/zevreader",
                 "/usr/lib/python3/dist-packages/zevreader/__init__.py", "/usr/share/man/man1/swinv.1.gz",
                 "/usr/share/man/man1/zevreader.1.gz", "/usr/share/bash-completion/completions/swinv",
                 "/usr/share/doc/zev-software/copyright", "/usr/share/doc/zev-software/changelog.gz",
                 "/usr/share/doc/zev-software/formats.md.gz", "/usr/share/lintian/overrides/zev-software"]
DEV_FILES = ["/usr/include/zev/component/basecomponent.h", "/usr/include/zev/message/NDKMessage.h",
             "/usr/include/zev/archive/arcobj.h", "/usr/share/doc/zev-software-dev/copyright"]


def run(*argv, check=True, **options):
    done = subprocess.run(argv, stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True, **options)
    if check and done.returncode != 0:
        raise AssertionError("%s failed (%d):\n%s" % (" ".join(argv), done.returncode, done.stdout[-3000:]))
    return done.stdout


def digest(path):
    with open(path, "rb") as f:
        return hashlib.sha256(f.read()).hexdigest()


def packages(pattern):
    return sorted(glob.glob(os.path.join(PACKAGE_DIR, pattern)))


def deb(name):
    found = [d for d in packages("*.deb") if os.path.basename(d).split("_")[0] == name]
    if len(found) != 1:
        raise AssertionError("expected one %s .deb in %s, found %s" % (name, PACKAGE_DIR, found))
    return found[0]


def deb_files(path):
    return ["/" + line.split()[5][2:] for line in run("dpkg-deb", "-c", path).splitlines() if line[0] in "-l"]


@unittest.skipUnless(shutil.which("dpkg-deb"), "dpkg-deb is missing")
class DebianPackages(unittest.TestCase):
    @unittest.skipUnless(shutil.which("lintian"), "lintian is missing")
    def test_lintian_reports_no_error_or_warning(self):
        debs = [deb(NAME), deb(NAME + "-dev")]
        report = run("lintian", "--allow-root", "--show-overrides", *debs, check=False)
        print("\nlintian --show-overrides:\n" + report, file=sys.stderr)
        self.assertEqual([line for line in report.splitlines() if line[:2] in ("E:", "W:")], [])
        overridden = sorted(set(re.findall(r"^O: (\S+: \S+)", report, re.M)))
        self.assertEqual(overridden, ["zev-software: file-in-unusual-dir", "zev-software: non-standard-dir-in-usr"])

    def test_control_fields_stripped_binaries_and_contents(self):
        fields = {name: dict(re.findall(r"^(\S+): (.*)$", run("dpkg-deb", "-f", deb(name)), re.M))
                  for name in (NAME, NAME + "-dev")}
        for name, control in fields.items():
            self.assertRegex(control["Maintainer"], r"<[^@]+@example\.(com|org|net)>$", name)
            self.assertTrue(len(control["Description"]) <= 80 and not control["Description"].endswith("."), name)
            self.assertGreater(len(run("dpkg-deb", "-f", deb(name), "Description").splitlines()), 3, name)
            print("%s: %d bytes, Installed-Size %s KiB" % (os.path.basename(deb(name)), os.path.getsize(deb(name)),
                                                           control["Installed-Size"]), file=sys.stderr)
        self.assertEqual(fields[NAME + "-dev"]["Depends"], "%s (= %s)" % (NAME, fields[NAME]["Version"]))
        self.assertIn("python3", fields[NAME]["Depends"].split(", "))
        self.assertEqual(fields[NAME + "-dev"]["Architecture"], "all")

        runtime, dev = deb_files(deb(NAME)), deb_files(deb(NAME + "-dev"))
        self.assertEqual(([f for f in RUNTIME_FILES if f not in runtime], [f for f in runtime if f.startswith("/usr/include")]),
                         ([], []))
        self.assertEqual(([f for f in DEV_FILES if f not in dev],
                          [f for f in dev if not f.startswith(("/usr/include/zev/", "/usr/share/doc/zev-software-dev/"))]),
                         ([], []))
        with tempfile.TemporaryDirectory() as root:
            run("dpkg-deb", "-x", deb(NAME), root)
            for binary in ("usr/bin/swinv", "usr/zev/slib/libsoftware.so.0"):
                sections = run("readelf", "-S", "-W", os.path.join(root, binary))
                self.assertEqual((re.findall(r"\.(?:debug_\w+|symtab)\b", sections)), [], binary)
                self.assertRegex(run("readelf", "-d", os.path.join(root, binary)), r"BIND_NOW|FLAGS.*\bNOW\b", binary)


@unittest.skipUnless(hasattr(os, "geteuid") and os.geteuid() == 0 and shutil.which("unshare") and shutil.which("dpkg"),
                     "installing a package, even into overlays, needs root, unshare and dpkg")
class InstallAndRemove(unittest.TestCase):
    def test_dpkg_install_run_and_remove_inside_overlays(self):
        status_before = digest("/var/lib/dpkg/status")
        with tempfile.TemporaryDirectory(prefix="zev-dpkg-") as scratch:
            done = subprocess.run(["unshare", "--mount", "--propagation", "private", sys.executable, os.path.abspath(__file__),
                                   "--inside", scratch, deb(NAME), deb(NAME + "-dev")],
                                  stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True, timeout=1800)
            self.assertEqual(done.returncode, 0, done.stdout[-6000:])
            report = json.loads(done.stdout.splitlines()[-1])
        print("inside the namespace: %s" % report["summary"], file=sys.stderr)
        self.assertEqual(report["problems"], [])
        # and nothing of it reached the machine
        self.assertEqual([path for path in RUNTIME_FILES + DEV_FILES + ["/usr/zev"] if os.path.lexists(path)], [])
        self.assertNotEqual(subprocess.run(["dpkg-query", "-W", NAME], stdout=subprocess.DEVNULL,
                                           stderr=subprocess.DEVNULL).returncode, 0)
        self.assertEqual(digest("/var/lib/dpkg/status"), status_before)


def inside(scratch, runtime, dev):
    """In the private namespace: overlays, dpkg -i, the installed programs, dpkg -r; prints a JSON report last."""
    problems, summary = [], {}
    uppers = {}
    for number, target in enumerate(OVERLAID):
        layer = os.path.join(scratch, "layer%d" % number)
        os.mkdir(layer)
        run("mount", "-t", "tmpfs", "tmpfs", layer)   # an overlay's upper folder cannot lie on an overlay
        for sub in ("upper", "work"):
            os.mkdir(os.path.join(layer, sub))
        run("mount", "-t", "overlay", "overlay", "-o",
            "lowerdir=%s,upperdir=%s/upper,workdir=%s/work" % (target, layer, layer), target)
        uppers[target] = os.path.join(layer, "upper")
    home = os.path.join(scratch, "home")
    run("dpkg", "-i", runtime, dev)
    problems += ["%s not installed" % path for path in RUNTIME_FILES + DEV_FILES if not os.path.exists(path)]

    reply = json.loads(run("/usr/bin/swinv", "--home", home, "run", "--json", "--save-reply", home + "/reply.bin",
                           env=dict(os.environ, HOME=home)))
    listed = set(run("dpkg-query", "--show", "--showformat", "${Package}\n").split())
    added = {record["key"].split("\\")[0] for record in reply["packages"]["added"]}
    summary["packages"] = len(added)
    if os.path.normpath(reply["library"]) != RUNTIME_FILES[0] or added != listed or NAME not in added:
        problems.append("swinv run: library %s, %d packages of %d listed, %s itself %s" % (
            reply["library"], len(added & listed), len(listed), NAME, "listed" if NAME in added else "missing"))
    # As a user runs it: Python leaves compiled copies of the module, which dpkg -r must not leave behind.
    decoded = json.loads(run("/usr/bin/zevreader", "reply", home + "/reply.bin",
                             env={k: v for k, v in os.environ.items() if k != "PYTHONDONTWRITEBYTECODE"}))
    if {e["key"] for e in decoded["packages"]["add"]["entries"]} != {r["key"] for r in reply["packages"]["added"]}:
        problems.append("zevreader reads other packages than swinv shows")
    if shutil.which("man") and "zevreader.1" not in run("man", "-w", "zevreader", check=False):
        problems.append("man -w zevreader finds no page")

    run("dpkg", "-r", NAME + "-dev", NAME)
    left = [path for path in RUNTIME_FILES + DEV_FILES + ["/usr/zev", "/usr/include/zev",
            "/usr/lib/python3/dist-packages/zevreader", "/usr/share/doc/zev-software"] if os.path.lexists(path)]
    # Whatever dpkg or the programs wrote below /usr or /etc and left there, directories aside.
    for target in ("/usr", "/etc"):
        for folder, _, names in os.walk(uppers[target]):
            left += [os.path.join(target, os.path.relpath(os.path.join(folder, n), uppers[target])) for n in names]
    problems += ["left after dpkg -r: %s" % path for path in left]
    state = run("dpkg-query", "-W", "-f", "${db:Status-Status}", NAME, check=False).strip()
    if "no packages found" not in state:   # not even "config-files": the package has none
        problems.append("dpkg knows %s after dpkg -r: %s" % (NAME, state))
    print(json.dumps({"problems": problems, "summary": summary}))
    return 0


@unittest.skipUnless(shutil.which("rpm"), "rpm is missing")
class RpmPackages(unittest.TestCase):
    def test_metadata_and_file_lists(self):
        rpms = {run("rpm", "-qp", "--qf", "%{NAME}", path).strip(): path for path in packages("*.rpm")}
        if not rpms:
            self.skipTest("no .rpm in %s (rpmbuild missing when cpack ran?)" % PACKAGE_DIR)
        self.assertEqual(sorted(rpms), [NAME, NAME + "-devel"])
        for name, path in rpms.items():
            info = run("rpm", "-qip", path)
            print("%s:\n%s" % (os.path.basename(path), info), file=sys.stderr)
            self.assertRegex(info, r"Summary\s*: \S.{10,}")
            self.assertRegex(info, r"Description :\n\S.{20,}\n\S")
            self.assertRegex(info, r"License\s*: Proprietary")
        runtime, devel = (run("rpm", "-qlp", rpms[n]).split() for n in (NAME, NAME + "-devel"))
        self.assertEqual(([f for f in RUNTIME_FILES if f not in runtime], [f for f in runtime if f.startswith("/usr/include")]),
                         ([], []))
        self.assertEqual([f for f in DEV_FILES[:3] if f not in devel], [])
        self.assertIn("%s = " % NAME, run("rpm", "-qp", "--requires", rpms[NAME + "-devel"]))
        self.assertIn("python3", run("rpm", "-qp", "--requires", rpms[NAME]).split())
        self.assertEqual(run("rpm", "-qp", "--qf", "%{ARCH}", rpms[NAME + "-devel"]), "noarch")
        # Stripped: with debug information swinv alone is over 10 MB.
        self.assertLess(int(run("rpm", "-qp", "--qf", "%{SIZE}", rpms[NAME])), 3 * 1024 * 1024)


if __name__ == "__main__":
    if sys.argv[1:2] == ["--inside"]:
        sys.exit(inside(*sys.argv[2:5]))
    if not PACKAGE_DIR:
        sys.exit(__doc__)
    unittest.main(argv=[sys.argv[0], "-v"] + sys.argv[1:])

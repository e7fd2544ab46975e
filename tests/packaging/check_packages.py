#!/usr/bin/env python3
"""check_packages.py PACKAGE_DIR: the packages cpack built, as an operator meets them: lintian, control fields and file
lists; dpkg -i, the installed swinv and zevreader, dpkg -r in a private mount namespace over overlays (root only); the
.rpm files through rpm -qip and -qlp."""
import glob, json, os, re, shutil, subprocess, sys, tempfile, unittest
from pathlib import Path

PACKAGE_DIR = ""   # set from the command line
NAME = "zev-software"
# The folders dpkg and its triggers write to; each gets an overlay inside the namespace.
OVERLAID = ["/usr", "/etc", "/var/lib/dpkg", "/var/log", "/var/cache"]
# The files an agent machine gets from each package.
RUNTIME_FILES = ["/usr/zev/slib/libsoftware.so.0", "/usr/bin/swinv", "/usr/bin/zevreader"] + [
    "/usr/lib/python3/dist-packages/zevreader/%s.py" % module for module in ("__init__", "formats")] + [
    "/usr/share/" + path for path in ("man/man1/swinv.1.gz", "man/man1/zevreader.1.gz", "bash-completion/completions/swinv",
                                      "doc/zev-software/copyright", "doc/zev-software/changelog.gz",
                                      "doc/zev-software/formats.md.gz", "lintian/overrides/zev-software")]
DEV_FILES = ["/usr/include/zev/" + header for header in (
    "component/basecomponent.h", "component/CompMenuList.h", "component/HostSettings.h", "message/NDKMessage.h",
    "message/NDKMessageData.h", "archive/arcobj.h")] + ["/usr/share/doc/zev-software-dev/copyright"]


def run(*argv, check=True, **options):
    done = subprocess.run(argv, stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True, **options)
    if check and done.returncode != 0:
        raise AssertionError("%s failed (%d):\n%s" % (" ".join(argv), done.returncode, done.stdout[-3000:]))
    return done.stdout


def deb(name):
    found = [d for d in glob.glob(PACKAGE_DIR + "/*.deb") if os.path.basename(d).split("_")[0] == name]
    assert len(found) == 1, "expected one %s .deb in %s, found %s" % (name, PACKAGE_DIR, found)
    return found[0]


def misfiled(runtime, dev):
    """The files missing from the runtime or development package's list, or lying in the wrong one."""
    return ([f for f in RUNTIME_FILES if f not in runtime] + [f for f in runtime if f.startswith("/usr/include")] +
            [f for f in DEV_FILES if f not in dev] +
            [f for f in dev if not f.startswith(("/usr/include/zev", "/usr/share/doc/zev-software-dev"))])


@unittest.skipUnless(shutil.which("dpkg-deb"), "dpkg-deb is missing")
class DebianPackages(unittest.TestCase):
    @unittest.skipUnless(shutil.which("lintian"), "lintian is missing")
    def test_lintian_reports_no_error_or_warning(self):
        report = run("lintian", "--allow-root", "--show-overrides", deb(NAME), deb(NAME + "-dev"), check=False)
        print("\nlintian --show-overrides:\n" + report, file=sys.stderr)
        self.assertEqual([line for line in report.splitlines() if line[:2] in ("E:", "W:")], [])
        self.assertEqual(sorted(set(re.findall(r"^O: (\S+: \S+)", report, re.M))),
                         ["zev-software: file-in-unusual-dir", "zev-software: non-standard-dir-in-usr"])

    def test_control_fields_and_contents(self):   # lintian checks the rest (an empty long description) and the stripping
        fields = {name: dict(re.findall(r"^(\S+): (.*)$", run("dpkg-deb", "-f", deb(name)), re.M))
                  for name in (NAME, NAME + "-dev")}
        for name, control in fields.items():
            self.assertRegex(control["Maintainer"], r"<[^@]+@example\.(com|org|net)>$", name)
            self.assertFalse(control["Description"].endswith("."), name)   # a synopsis, not a sentence
        self.assertEqual([fields[NAME + "-dev"][key] for key in ("Depends", "Architecture")],
                         ["%s (= %s)" % (NAME, fields[NAME]["Version"]), "all"])
        self.assertIn("python3", fields[NAME]["Depends"].split(", "))
        files = [["/" + line.split()[5][2:] for line in run("dpkg-deb", "-c", deb(name)).splitlines() if line[0] in "-l"]
                 for name in (NAME, NAME + "-dev")]
        self.assertEqual(misfiled(*files), [])


@unittest.skipUnless(hasattr(os, "geteuid") and os.geteuid() == 0 and shutil.which("unshare") and shutil.which("dpkg"),
                     "installing a package, even into overlays, needs root, unshare and dpkg")
class InstallAndRemove(unittest.TestCase):
    def test_dpkg_install_run_and_remove_inside_overlays(self):
        status_before = Path("/var/lib/dpkg/status").read_bytes()
        with tempfile.TemporaryDirectory(prefix="zev-dpkg-") as scratch:
            done = subprocess.run(["unshare", "--mount", "--propagation", "private", sys.executable, os.path.abspath(__file__),
                                   "--inside", scratch, deb(NAME), deb(NAME + "-dev")],
                                  stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True, timeout=1800)
        print("inside the namespace:\n" + done.stdout[-3000:], file=sys.stderr)
        self.assertEqual(done.returncode, 0, done.stdout[-6000:])
        # and nothing of it reached the machine
        self.assertEqual([path for path in RUNTIME_FILES + DEV_FILES + ["/usr/zev"] if os.path.lexists(path)], [])
        self.assertEqual(Path("/var/lib/dpkg/status").read_bytes(), status_before)


def inside(scratch, runtime, dev):
    """In the private namespace: overlays, dpkg -i, the installed programs, dpkg -r; prints each problem, 1 if any."""
    upper = lambda target: "%s/layer%d/upper" % (scratch, OVERLAID.index(target))
    for target in OVERLAID:
        layer = os.path.dirname(upper(target))
        os.mkdir(layer)
        run("mount", "-t", "tmpfs", "tmpfs", layer)   # an overlay's upper folder cannot lie on an overlay
        run("mkdir", upper(target), layer + "/work")
        run("mount", "-t", "overlay", "overlay", "-o", "lowerdir=%s,upperdir=%s,workdir=%s/work" % (target, upper(target), layer),
            target)
    home = os.path.join(scratch, "home")
    run("dpkg", "-i", runtime, dev)
    problems = ["%s is linked without BIND_NOW" % path for path in RUNTIME_FILES[:2]
                 if not re.search(r"BIND_NOW|FLAGS.*\bNOW\b", run("readelf", "-d", path))]

    reply = json.loads(run("/usr/bin/swinv", "--home", home, "run", "--json", "--save-reply", home + "/reply.bin",
                           env=dict(os.environ, HOME=home)))
    listed = set(run("dpkg-query", "--show", "--showformat", "${Package}\n").split())
    added = {record["key"].split("\\")[0] for record in reply["packages"]["added"]}
    if os.path.normpath(reply["library"]) != RUNTIME_FILES[0] or added != listed:
        problems.append("swinv run: library %s, %d packages of %d listed" % (reply["library"], len(added & listed), len(listed)))
    # As a user runs it: Python leaves compiled copies of the module, which dpkg -r must not leave behind.
    decoded = json.loads(run("/usr/bin/zevreader", "reply", home + "/reply.bin",
                             env={k: v for k, v in os.environ.items() if k != "PYTHONDONTWRITEBYTECODE"}))
    if {e["key"] for e in decoded["packages"]["add"]["entries"]} != {r["key"] for r in reply["packages"]["added"]}:
        problems.append("zevreader reads other packages than swinv shows")

    run("dpkg", "-r", NAME + "-dev", NAME)
    left = [path for path in ["/usr/zev", "/usr/include/zev", "/usr/lib/python3/dist-packages/zevreader",
                              "/usr/share/doc/zev-software"] if os.path.lexists(path)]
    # Whatever dpkg or the programs wrote below /usr or /etc and left there, directories aside.
    for target in ("/usr", "/etc"):
        for folder, _, names in os.walk(upper(target)):
            left += [os.path.join(target, os.path.relpath(os.path.join(folder, n), upper(target))) for n in names]
    problems += ["left after dpkg -r: %s" % path for path in left]
    state = run("dpkg-query", "-W", "-f", "${db:Status-Status}", NAME, check=False).strip()
    if "no packages found" not in state:   # not even "config-files": the package has none
        problems.append("dpkg knows %s after dpkg -r: %s" % (NAME, state))
    print("\n".join(["problem: " + problem for problem in problems]))
    return 1 if problems else 0


@unittest.skipUnless(shutil.which("rpm"), "rpm is missing")
class RpmPackages(unittest.TestCase):
    def test_metadata_and_file_lists(self):
        rpms = {run("rpm", "-qp", "--qf", "%{NAME}", path).strip(): path for path in glob.glob(PACKAGE_DIR + "/*.rpm")}
        if not rpms:
            self.skipTest("no .rpm in %s (rpmbuild missing when cpack ran?)" % PACKAGE_DIR)
        self.assertEqual(sorted(rpms), [NAME, NAME + "-devel"])
        for path in rpms.values():
            self.assertRegex(run("rpm", "-qip", path),
                             r"License\s*: Proprietary\n(.*\n)*Summary\s*: \S.{10,}\nDescription :\n\S.{20,}\n\S")
        self.assertEqual(misfiled(*(run("rpm", "-qlp", rpms[n]).split() for n in (NAME, NAME + "-devel"))), [])
        self.assertIn("%s = " % NAME, run("rpm", "-qp", "--requires", rpms[NAME + "-devel"]))
        self.assertIn("python3", run("rpm", "-qp", "--requires", rpms[NAME]).split())
        self.assertEqual(run("rpm", "-qp", "--qf", "%{ARCH}", rpms[NAME + "-devel"]), "noarch")
        # Stripped: with debug information swinv alone is over 10 MB.
        self.assertLess(int(run("rpm", "-qp", "--qf", "%{SIZE}", rpms[NAME])), 3 * 1024 * 1024)


if __name__ == "__main__":
    PACKAGE_DIR = os.path.abspath(sys.argv.pop(1)) if len(sys.argv) > 1 and not sys.argv[1].startswith("-") else ""
    if sys.argv[1:2] == ["--inside"]:
        sys.exit(inside(*sys.argv[2:5]))
    if not PACKAGE_DIR:
        sys.exit(__doc__)
    unittest.main(argv=[sys.argv[0], "-v"] + sys.argv[1:])

#!/usr/bin/env python3
"""check_packages.py PACKAGE_DIR: the .deb and .rpm packages cpack built, as an operator and a host developer meet them;
dpkg -i and -r run in a private mount namespace over overlays (root only)."""
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
    "component/basecomponent.h", "component/CompMenuList.h", "component/HostRecords.h", "component/HostSettings.h",
    "message/NDKMessage.h", "message/NDKMessageData.h", "archive/arcobj.h")] + [
    "/usr/share/doc/zev-software-dev/" + path for path in ("copyright", "examples/example-host.cpp",
                                                           "examples/CMakeLists.txt")]
# The -dev package's files in the library folder, below /usr/lib/<multiarch> on Debian.
HOST_LIBRARY_FILES = ["libzev-software-host.a", "pkgconfig/zev-software.pc", "cmake/ZevSoftware/ZevSoftwareConfig.cmake",
                      "cmake/ZevSoftware/ZevSoftwareConfigVersion.cmake"]
FAKEPM = str(Path(__file__).resolve().parents[1] / "tools" / "fakepm")

def run(*argv, check=True, **options):
    done = subprocess.run(argv, stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True, **options)
    if check and done.returncode != 0:
        raise AssertionError("%s failed (%d):\n%s" % (" ".join(argv), done.returncode, done.stdout[-3000:]))
    return done.stdout


def deb(name):
    found = [d for d in glob.glob(PACKAGE_DIR + "/*.deb") if os.path.basename(d).split("_")[0] == name]
    assert len(found) == 1, "expected one %s .deb in %s, found %s" % (name, PACKAGE_DIR, found)
    return found[0]


def host_libdir():
    """The library folder of the -dev package: Debian's multiarch folder where the machine has one."""
    arch = run("dpkg-architecture", "-qDEB_HOST_MULTIARCH").strip() if shutil.which("dpkg-architecture") else ""
    return "/usr/lib/" + arch if arch else "/usr/lib"


def misfiled(runtime, dev):
    """The files missing from the runtime or development package's list, or lying in the wrong one."""
    dev_files = DEV_FILES + [host_libdir() + "/" + name for name in HOST_LIBRARY_FILES]
    return ([f for f in RUNTIME_FILES if f not in runtime] + [f for f in runtime if f.startswith("/usr/include")] +
            [f for f in dev_files if f not in dev] +
            [f for f in dev if f not in dev_files and not f.startswith(
                ("/usr/include/zev", "/usr/share/doc/zev-software-dev", host_libdir() + "/cmake/ZevSoftware"))])


def example_host_problems(examples, work, env, library=()):
    """Builds the example host in `examples` with pkg-config and with CMake, as its header says, and runs each build
    over a stand-in package manager of two packages (against `library` if given, else the host's default)."""
    stand_in = os.path.join(work, "pm")
    os.makedirs(stand_in)
    for name in ("dpkg-query", "rpm"):
        os.symlink(FAKEPM, os.path.join(stand_in, name))
    Path(work, "packages").write_text("alpha^1.0^Alpha tool^Debian\nbeta^2.1^Beta tool^Debian\n")
    flags = run("pkg-config", "--cflags", "--libs", "zev-software", env=env).split()
    hosts = {"pkg-config": os.path.join(work, "host-pkg-config"), "CMake": os.path.join(work, "cmake", "zev-host-example")}
    run("g++", "-std=c++17", "-o", hosts["pkg-config"], os.path.join(examples, "example-host.cpp"), *flags, env=env)
    run("cmake", "-S", examples, "-B", os.path.join(work, "cmake"), env=env)
    run("cmake", "--build", os.path.join(work, "cmake"), env=env)
    problems = []
    for way, host in hosts.items():
        printed = run(host, os.path.join(work, "home-" + way), *library,
                      env=dict(env, PATH=stand_in + ":" + env["PATH"], FAKE_PM_DB=os.path.join(work, "packages")))
        if "packages: 2 added, 0 deleted, 0 changed" not in printed.splitlines():
            problems.append("the example host built with %s printed:\n%s" % (way, printed))
    return problems


@unittest.skipUnless(shutil.which("dpkg-deb"), "dpkg-deb is missing")
class DebianPackages(unittest.TestCase):
    @unittest.skipUnless(shutil.which("lintian"), "lintian is missing")
    def test_lintian_reports_no_error_or_warning(self):
        report = run("lintian", "--allow-root", "--show-overrides", deb(NAME), deb(NAME + "-dev"), check=False)
        print("\nlintian --show-overrides:\n" + report, file=sys.stderr)
        self.assertEqual([line for line in report.splitlines() if line[:2] in ("E:", "W:")], [])
        self.assertEqual(sorted(set(re.findall(r"^O: (\S+: \S+)", report, re.M))),
                         ["zev-software: file-in-unusual-dir", "zev-software: non-standard-dir-in-usr"])

    def test_control_fields_and_contents(self):   # lintian checks the rest: python3 for zevreader, stripping, descriptions
        fields = {name: dict(re.findall(r"^(\S+): (.*)$", run("dpkg-deb", "-f", deb(name)), re.M))
                  for name in (NAME, NAME + "-dev")}
        for name, control in fields.items():
            self.assertRegex(control["Maintainer"], r"<[^@]+@example\.(com|org|net)>$", name)
            self.assertFalse(control["Description"].endswith("."), name)   # a synopsis, not a sentence
        self.assertEqual([fields[NAME + "-dev"][key] for key in ("Depends", "Architecture")],
                         ["%s (= %s), zlib1g-dev" % (NAME, fields[NAME]["Version"]), fields[NAME]["Architecture"]])
        files = [["/" + line.split()[5][2:] for line in run("dpkg-deb", "-c", deb(name)).splitlines() if line[0] in "-l"]
                 for name in (NAME, NAME + "-dev")]
        self.assertEqual(misfiled(*files), [])

    @unittest.skipUnless(all(map(shutil.which, ("g++", "cmake", "pkg-config"))), "g++, cmake or pkg-config is missing")
    def test_example_host_builds_from_the_unpacked_packages_and_runs_an_inventory(self):
        with tempfile.TemporaryDirectory(prefix="zev-host-") as work:
            root = os.path.join(work, "root")
            for name in (NAME, NAME + "-dev"):
                run("dpkg-deb", "-x", deb(name), root)
            libdir = root + host_libdir()
            # Position-independent: it links whole into a shared object.
            run("g++", "-shared", "-o", os.path.join(work, "whole.so"), "-Wl,--whole-archive",
                os.path.join(libdir, "libzev-software-host.a"), "-Wl,--no-whole-archive", "-lz")
            # Found only through the unpacked files: both the module and the package locate themselves.
            env = dict(os.environ, PKG_CONFIG_PATH=libdir + "/pkgconfig", CMAKE_PREFIX_PATH=root + "/usr")
            self.assertEqual(example_host_problems(root + "/usr/share/doc/zev-software-dev/examples", work, env,
                                                   [root + RUNTIME_FILES[0]]), [])


@unittest.skipUnless(hasattr(os, "geteuid") and os.geteuid() == 0 and shutil.which("unshare") and shutil.which("dpkg"),
                     "installing a package, even into overlays, needs root, unshare and dpkg")
class InstallAndRemove(unittest.TestCase):
    def test_dpkg_install_run_and_remove_inside_overlays(self):
        status_before = Path("/var/lib/dpkg/status").read_bytes()
        with tempfile.TemporaryDirectory(prefix="zev-dpkg-") as scratch:
            done = subprocess.run(["unshare", "--mount", "--propagation", "private", sys.executable, os.path.abspath(__file__),
                                   "--inside", scratch, deb(NAME), deb(NAME + "-dev")],
                                  stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True, timeout=1800)
        self.assertEqual(done.returncode, 0, done.stdout[-6000:])
        # and nothing of it reached the machine
        self.assertEqual([path for path in RUNTIME_FILES + DEV_FILES + ["/usr/zev", "/usr/include/zev"] +
                          [host_libdir() + "/" + name for name in HOST_LIBRARY_FILES] if os.path.lexists(path)], [])
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

    # The installed swinv finds the installed library (that it lists what dpkg does, the swinv tests check).
    reply = json.loads(run("/usr/bin/swinv", "--home", home, "run", "--json", "--save-reply", home + "/reply.bin",
                           env=dict(os.environ, HOME=home)))
    if os.path.normpath(reply["library"]) != RUNTIME_FILES[0] or not reply["packages"]["added"]:
        problems.append("swinv run: library %s, %d packages" % (reply["library"], len(reply["packages"]["added"])))
    # As a user runs it: Python leaves compiled copies of the module, which dpkg -r must not leave behind.
    decoded = json.loads(run("/usr/bin/zevreader", "reply", home + "/reply.bin",
                             env={k: v for k, v in os.environ.items() if k != "PYTHONDONTWRITEBYTECODE"}))
    if {e["key"] for e in decoded["packages"]["add"]["entries"]} != {r["key"] for r in reply["packages"]["added"]}:
        problems.append("zevreader reads other packages than swinv shows")

    # The example host, built from the installed files alone, against the installed library.
    problems += example_host_problems("/usr/share/doc/zev-software-dev/examples", os.path.join(scratch, "example"),
                                      dict(os.environ))

    run("dpkg", "-r", NAME + "-dev", NAME)
    left = [path for path in ["/usr/zev", "/usr/include/zev", "/usr/lib/python3/dist-packages/zevreader",
                              "/usr/share/doc/zev-software", "/usr/share/doc/zev-software-dev",
                              host_libdir() + "/cmake/ZevSoftware"] if os.path.lexists(path)]
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
        requires = {name: run("rpm", "-qp", "--requires", path) for name, path in rpms.items()}
        self.assertIn("python3", requires[NAME].split())
        self.assertTrue("%s = " % NAME in requires[NAME + "-devel"] and "zlib-devel" in requires[NAME + "-devel"], requires)
        self.assertEqual(*(run("rpm", "-qp", "--qf", "%{ARCH}", rpms[n]) for n in (NAME, NAME + "-devel")))
        # Stripped: with debug information swinv alone is over 10 MB.
        self.assertLess(int(run("rpm", "-qp", "--qf", "%{SIZE}", rpms[NAME])), 3 * 1024 * 1024)


if __name__ == "__main__":
    PACKAGE_DIR = os.path.abspath(sys.argv.pop(1)) if len(sys.argv) > 1 and not sys.argv[1].startswith("-") else ""
    if sys.argv[1:2] == ["--inside"]:
        sys.exit(inside(*sys.argv[2:5]))
    if not PACKAGE_DIR:
        sys.exit(__doc__)
    unittest.main(argv=[sys.argv[0], "-v"] + sys.argv[1:])

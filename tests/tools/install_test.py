#!/usr/bin/env python3
"""Installs the build into a DESTDIR and runs the installed swinv from there against a temporary
home; checks the layout an agent machine gets, in the DESTDIR and in the .deb.
Usage: install_test.py BUILD_DIR FAKEPM (the fake package manager script)."""
import glob, json, os, shutil, subprocess, sys, tempfile, unittest
from pathlib import Path

BUILD_DIR, FAKEPM = sys.argv[1:3]
LAYOUT = ["usr/zev/slib/libsoftware.so.0", "usr/bin/swinv"] + ["usr/include/zev/" + header for header in (
    "component/basecomponent.h", "component/CompMenuList.h", "component/HostSettings.h", "message/NDKMessage.h",
    "message/NDKMessageData.h", "archive/arcobj.h")]


class InstallTest(unittest.TestCase):
    def setUp(self):
        self.tmp = tempfile.mkdtemp(prefix="swinv-install-") + "/"
        self.addCleanup(shutil.rmtree, self.tmp, True)

    def run_ok(self, argv, **options):
        done = subprocess.run(argv, capture_output=True, text=True, timeout=600, **options)
        self.assertEqual(done.returncode, 0, done.stdout + done.stderr)
        return done.stdout

    def test_layout_and_the_installed_swinv(self):
        root = self.tmp + "root/"
        self.run_ok(["cmake", "--install", BUILD_DIR, "--prefix", "/usr"], env=dict(os.environ, DESTDIR=root))
        self.assertEqual([path for path in LAYOUT if not os.path.isfile(root + path)], [])
        self.assertFalse(os.path.exists(root + "usr/zev/slib/libsoftware.so"), "a development link for the agent")
        os.mkdir(self.tmp + "bin")
        for name in ("dpkg-query", "rpm"):
            os.symlink(FAKEPM, self.tmp + "bin/" + name)
        Path(self.tmp + "db").write_text("bash^5.2.15-2^shell^Debian\nsed^4.9-1^stream editor^Debian\n")
        env = {k: v for k, v in os.environ.items() if k != "ZEV_HOME"}
        env.update(PATH=self.tmp + "bin" + os.pathsep + env["PATH"], FAKE_PM_DB=self.tmp + "db")
        reply = json.loads(self.run_ok([root + "usr/bin/swinv", "--home", self.tmp + "home", "run", "--json"], env=env))
        self.assertEqual(os.path.realpath(reply["library"]), os.path.realpath(root + LAYOUT[0]))
        self.assertEqual([r["name"] for r in reply["packages"]["added"]], ["bash", "sed"])

    def test_debian_package_layout(self):
        if not (shutil.which("cpack") and shutil.which("dpkg-deb")):
            self.skipTest("cpack or dpkg-deb missing")
        out = self.tmp + "packages"
        self.run_ok(["cpack", "-G", "DEB", "--config", os.path.join(BUILD_DIR, "CPackConfig.cmake"), "-B", out])
        debs = glob.glob(out + "/*.deb")
        self.assertEqual(len(debs), 1, os.listdir(out))
        paths = {line.split()[5][2:] for line in self.run_ok(["dpkg-deb", "-c", debs[0]]).splitlines()}
        self.assertLessEqual(set(LAYOUT), paths)


if __name__ == "__main__":
    unittest.main(argv=[sys.argv[0], "-v"])

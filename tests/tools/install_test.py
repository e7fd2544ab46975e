#!/usr/bin/env python3
"""install_test.py BUILD_DIR (FAKEPM in the environment): installs the build into a DESTDIR, runs the installed swinv
as swinv_e2e.py does, and checks the layout an agent machine gets, in the DESTDIR and in the .deb."""
import glob, os, shutil, subprocess, sys, unittest
from swinv_e2e import PACKAGES, SwinvCase, records

BUILD_DIR = sys.argv.pop(1)
LAYOUT = ["usr/zev/slib/libsoftware.so.0", "usr/bin/swinv"] + ["usr/include/zev/" + header for header in (
    "component/basecomponent.h", "component/CompMenuList.h", "component/HostSettings.h", "message/NDKMessage.h",
    "message/NDKMessageData.h", "archive/arcobj.h")]


class InstallTest(SwinvCase):
    def run_ok(self, *argv, **options):
        done = subprocess.run(argv, capture_output=True, text=True, timeout=600, **options)
        self.assertEqual(done.returncode, 0, done.stdout + done.stderr)
        return done.stdout

    def test_layout_and_the_installed_swinv(self):
        root = self.path("root/")
        self.run_ok("cmake", "--install", BUILD_DIR, "--prefix", "/usr", env=dict(os.environ, DESTDIR=root))
        missing = [path for path in LAYOUT if not os.path.isfile(root + path)]
        self.assertEqual(missing + glob.glob(root + "usr/zev/slib/*.so"), [])   # and no development link
        reply = self.swinv_json("run", exe=root + "usr/bin/swinv")
        self.assertEqual(os.path.realpath(reply["library"]), os.path.realpath(root + LAYOUT[0]))
        self.assertEqual(reply["packages"]["added"], records(PACKAGES))

    @unittest.skipUnless(shutil.which("cpack") and shutil.which("dpkg-deb"), "cpack or dpkg-deb missing")
    def test_debian_package_layout(self):
        self.run_ok("cpack", "-G", "DEB", "--config", os.path.join(BUILD_DIR, "CPackConfig.cmake"), "-B", self.tmp)
        debs = glob.glob(self.path("*.deb"))
        self.assertEqual(len(debs), 1, os.listdir(self.tmp))
        paths = {line.split()[5][2:] for line in self.run_ok("dpkg-deb", "-c", debs[0]).splitlines()}
        self.assertLessEqual(set(LAYOUT), paths)


if __name__ == "__main__":
    unittest.main(argv=[sys.argv[0], "-v"])

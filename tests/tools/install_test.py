#!/usr/bin/env python3
"""install_test.py BUILD_DIR (FAKEPM in the environment): installs the build into a DESTDIR, runs the installed swinv
and zevreader as swinv_e2e.py does, and checks the layout an agent machine gets, in the DESTDIR and in the two .debs."""
import glob, json, os, shutil, subprocess, sys, unittest
from swinv_e2e import PACKAGES, SwinvCase, records

BUILD_DIR = sys.argv.pop(1)
RUNTIME = ["usr/zev/slib/libsoftware.so.0", "usr/bin/swinv", "usr/bin/zevreader", "usr/share/man/man1/swinv.1.gz",
           "usr/share/man/man1/zevreader.1.gz", "usr/share/bash-completion/completions/swinv",
           "usr/lib/python3/dist-packages/zevreader/formats.py", "usr/share/doc/zev-software/copyright",
           "usr/share/doc/zev-software/changelog.gz", "usr/share/doc/zev-software/formats.md.gz"]
DEV = ["usr/include/zev/" + header for header in (
    "component/basecomponent.h", "component/CompMenuList.h", "component/HostSettings.h", "message/NDKMessage.h",
    "message/NDKMessageData.h", "archive/arcobj.h")] + ["usr/share/doc/zev-software-dev/copyright"]
LAYOUT = RUNTIME + DEV


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
        reply = self.swinv_json("run", "--save-reply", self.path("reply.bin"), exe=root + "usr/bin/swinv")
        self.assertEqual(os.path.realpath(reply["library"]), os.path.realpath(root + LAYOUT[0]))
        self.assertEqual(reply["packages"]["added"], records(PACKAGES))
        # The installed zevreader finds its module beside it, in <prefix>/lib/python3/dist-packages.
        decoded = json.loads(self.run_ok(root + "usr/bin/zevreader", "reply", self.path("reply.bin"),
                                         env=dict(os.environ, PYTHONDONTWRITEBYTECODE="1")))
        self.assertEqual([e["key"] for e in decoded["packages"]["add"]["entries"]], [r["key"] for r in records(PACKAGES)])

    @unittest.skipUnless(shutil.which("cpack") and shutil.which("dpkg-deb"), "cpack or dpkg-deb missing")
    def test_debian_packages_split_runtime_and_headers(self):
        self.run_ok("cpack", "-G", "DEB", "--config", os.path.join(BUILD_DIR, "CPackConfig.cmake"), "-B", self.tmp)
        debs = sorted(glob.glob(self.path("*.deb")), key=lambda deb: os.path.basename(deb).split("_")[0])
        self.assertEqual([os.path.basename(deb).split("_")[0] for deb in debs], ["zev-software", "zev-software-dev"])
        foreign = (lambda f: f.startswith("usr/include/"),   # headers only in -dev, and nothing else there
                   lambda f: not f.startswith(("usr/include/zev/", "usr/share/doc/zev-software-dev/")))
        for deb, expected, misplaced in zip(debs, (RUNTIME, DEV), foreign):
            files = {line.split()[5][2:] for line in self.run_ok("dpkg-deb", "-c", deb).splitlines() if line[0] in "-l"}
            self.assertEqual((set(expected) - files, set(filter(misplaced, files))), (set(), set()), deb)


if __name__ == "__main__":
    unittest.main(argv=[sys.argv[0], "-v"])

#!/usr/bin/env python3
"""Installs the build into a DESTDIR and runs the installed swinv from there.

Checks the layout an agent machine gets (/usr/zev/slib/libsoftware.so.0, swinv in
/usr/bin, the host headers under /usr/include/zev), that the installed swinv finds
the installed library by itself, that the headers compile, and that the .deb that
CPack makes holds the same layout.
"""

import argparse
import glob
import json
import os
import shutil
import subprocess
import sys
import tempfile
import unittest

ARGS = None

HEADERS = ["component/basecomponent.h", "component/CompMenuList.h", "component/HostSettings.h",
           "message/NDKMessage.h", "message/NDKMessageData.h", "archive/arcobj.h"]


class InstallTest(unittest.TestCase):
    def setUp(self):
        self.tmp = tempfile.mkdtemp(prefix="swinv-install-")
        self.addCleanup(shutil.rmtree, self.tmp, True)
        self.root = os.path.join(self.tmp, "root")
        env = dict(os.environ, DESTDIR=self.root)
        done = subprocess.run(["cmake", "--install", ARGS.build_dir, "--prefix", "/usr"], env=env,
                              capture_output=True, text=True)
        self.assertEqual(done.returncode, 0, done.stderr)

    def test_layout_and_the_installed_swinv(self):
        usr = os.path.join(self.root, "usr")
        library = os.path.join(usr, "zev", "slib", "libsoftware.so.0")
        self.assertTrue(os.path.isfile(library), library)
        self.assertFalse(os.path.exists(os.path.join(usr, "zev", "slib", "libsoftware.so")),
                         "the development link is not for the agent's folder")
        swinv = os.path.join(usr, "bin", "swinv")
        self.assertTrue(os.access(swinv, os.X_OK), swinv)
        for header in HEADERS:
            self.assertTrue(os.path.isfile(os.path.join(usr, "include", "zev", header)), header)

        # The installed program finds the installed library beside it, with a fake package manager.
        fake_bin = os.path.join(self.tmp, "fakebin")
        os.mkdir(fake_bin)
        os.symlink(ARGS.fakepm, os.path.join(fake_bin, "dpkg-query"))
        os.symlink(ARGS.fakepm, os.path.join(fake_bin, "rpm"))
        db = os.path.join(self.tmp, "packages.db")
        with open(db, "w") as f:
            f.write("bash^5.2.15-2^GNU Bourne Again SHell^Debian\nsed^4.9-1^GNU stream editor^Debian\n")
        env = dict(os.environ, PATH=fake_bin + os.pathsep + os.environ["PATH"], FAKE_PM_DB=db)
        env.pop("ZEV_HOME", None)
        done = subprocess.run([swinv, "--home", os.path.join(self.tmp, "home"), "run", "--json"], env=env,
                              capture_output=True, text=True, timeout=600)
        self.assertEqual(done.returncode, 0, done.stderr)
        reply = json.loads(done.stdout)
        self.assertEqual(os.path.realpath(reply["library"]), os.path.realpath(library))
        self.assertEqual([r["name"] for r in reply["packages"]["added"]], ["bash", "sed"])

    def test_headers_are_enough_for_a_host(self):
        compiler = shutil.which("c++")
        if not compiler:
            self.skipTest("no C++ compiler")
        source = os.path.join(self.tmp, "host.cpp")
        with open(source, "w") as f:
            f.write("#include <component/basecomponent.h>\n"
                    "#include <component/HostSettings.h>\n"
                    "int main() { CInitInfo info(true); CNDKMessage reply; return info.m_bInit ? 0 : 1; }\n")
        include = os.path.join(self.root, "usr", "include", "zev")
        done = subprocess.run([compiler, "-std=c++17", "-fsyntax-only", "-I", include, source],
                              capture_output=True, text=True)
        self.assertEqual(done.returncode, 0, done.stderr)

    def test_debian_package_layout(self):
        if not (shutil.which("cpack") and shutil.which("dpkg-deb")):
            self.skipTest("cpack or dpkg-deb missing")
        out = os.path.join(self.tmp, "packages")
        done = subprocess.run(["cpack", "-G", "DEB", "--config", os.path.join(ARGS.build_dir, "CPackConfig.cmake"),
                               "-B", out], capture_output=True, text=True, timeout=600)
        self.assertEqual(done.returncode, 0, done.stdout + done.stderr)
        debs = glob.glob(os.path.join(out, "*.deb"))
        self.assertEqual(len(debs), 1, os.listdir(out))
        listing = subprocess.run(["dpkg-deb", "-c", debs[0]], capture_output=True, text=True, check=True).stdout
        paths = {line.split()[5] for line in listing.splitlines()}
        for expected in ("./usr/zev/slib/libsoftware.so.0", "./usr/bin/swinv",
                         "./usr/include/zev/component/basecomponent.h"):
            self.assertIn(expected, paths)


if __name__ == "__main__":
    parser = argparse.ArgumentParser()
    parser.add_argument("--build-dir", required=True)
    parser.add_argument("--fakepm", required=True)
    ARGS, rest = parser.parse_known_args()
    unittest.main(argv=[sys.argv[0], "-v"] + rest)

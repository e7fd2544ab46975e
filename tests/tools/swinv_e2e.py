#!/usr/bin/env python3
"""End-to-end tests of the swinv host program against the built libsoftware.so.0.

Each test runs the real executable in a temporary home, with a fake package
manager (fakepm, under the names dpkg-query and rpm) first in PATH wherever a
stable package list is needed. Environment: SWINV (the executable), FAKEPM (the
fake package manager script), ZEVREADER (the independent format reader).
"""

import glob
import json
import os
import shlex
import shutil
import subprocess
import sys
import tempfile
import unittest

SWINV = os.environ.get("SWINV", "")
FAKEPM = os.environ.get("FAKEPM", "")
ZEVREADER = os.environ.get("ZEVREADER", "")

PACKAGES = [
    ("bash", "5.2.15-2", "GNU Bourne Again SHell", "Debian"),
    ("gcc-12", "12.2.0-14", "GNU C compiler", "Debian"),
    ("zlib1g", "1:1.2.13", "compression library - runtime", ""),
]


# The record name loses a version-like tail that follows a '-'.
SHOWN_NAMES = {"gcc-12": "gcc"}


def package_record(name, version, summary, vendor):
    """The record the component makes for one package line of the fake database."""
    shown_name = SHOWN_NAMES.get(name, name)
    return {
        "key": "%s\\%s\\%s" % (name, vendor, version),
        "class": "CSoftwarePackageObject",
        "name": shown_name,
        "version": version,
        "vendor": vendor or " ",
        "extra1": "",
        "extra2": "",
        "flags": 128,
        "description": summary,
    }


def records(rows):
    return sorted((package_record(*row) for row in rows), key=lambda r: r["key"].encode())


def reader(*args):
    out = subprocess.run([sys.executable, ZEVREADER, *args], capture_output=True, text=True, check=True)
    return json.loads(out.stdout)


def from_reader_text(text):
    """The reader keeps bytes as latin-1 characters; swinv prints them as UTF-8."""
    return text.encode("latin-1").decode("utf-8", errors="replace")


class SwinvCase(unittest.TestCase):
    def setUp(self):
        self.assertTrue(os.access(SWINV, os.X_OK), "SWINV does not name the swinv executable")
        self.tmp = tempfile.mkdtemp(prefix="swinv-e2e-")
        self.addCleanup(shutil.rmtree, self.tmp, True)
        self.home = os.path.join(self.tmp, "home") + "/"
        self.data = self.home + "data/"
        fake_bin = os.path.join(self.tmp, "fakebin")
        os.mkdir(fake_bin)
        for name in ("dpkg-query", "rpm"):
            os.symlink(FAKEPM, os.path.join(fake_bin, name))
        self.db = os.path.join(self.tmp, "packages.db")
        self.pm_log = os.path.join(self.tmp, "pm.log")
        self.write_db(PACKAGES)
        self.env = dict(os.environ, PATH=fake_bin + os.pathsep + os.environ.get("PATH", ""),
                        FAKE_PM_DB=self.db, FAKE_PM_LOG=self.pm_log)
        self.env.pop("ZEV_HOME", None)

    def write_db(self, rows):
        with open(self.db, "w") as db:
            db.writelines("^".join(row) + "\n" for row in rows)

    def pm_calls(self):
        if not os.path.exists(self.pm_log):
            return []
        with open(self.pm_log) as log:
            return log.read().splitlines()

    def swinv(self, *args, code=0, home=True, env=None, exe=None):
        argv = [exe or SWINV] + (["--home", self.home] if home else []) + list(args)
        done = subprocess.run(argv, capture_output=True, text=True, env=env or self.env, timeout=600)
        self.assertEqual(done.returncode, code, "%s\nstdout: %s\nstderr: %s" % (argv, done.stdout[-2000:], done.stderr))
        return done

    def swinv_json(self, *args):
        return json.loads(self.swinv(*args, "--json").stdout)

    def assert_one_line_error(self, done, *fragments):
        lines = done.stderr.strip().splitlines()
        self.assertEqual(len(lines), 1, done.stderr)
        self.assertTrue(lines[0].startswith("swinv: "), lines[0])
        for fragment in fragments:
            self.assertIn(fragment, lines[0])


class RunTest(SwinvCase):
    def test_first_run_reports_every_package_field_by_field(self):
        reply = self.swinv_json("run")
        self.assertEqual(list(reply)[:6], ["kind", "command", "result", "acknowledged", "home", "library"])
        self.assertEqual((reply["kind"], reply["command"], reply["result"], reply["acknowledged"]), ("reply", 0, 3, False))
        self.assertEqual(reply["home"], self.home)
        self.assertTrue(reply["library"].endswith("libsoftware.so.0"), reply["library"])
        self.assertRegex(reply["scan_time"], r"^\d\d [A-Z][a-z]{2} \d{4} \d\d:\d\d:\d\d$")
        self.assertEqual(reply["software"], {"added": [], "deleted": [], "changed": [], "reserved": [],
                                             "baseline_missing": True})
        packages = reply["packages"]
        self.assertEqual(list(packages), ["added", "deleted", "changed", "baseline_missing"])
        self.assertEqual((packages["deleted"], packages["changed"], packages["baseline_missing"]), ([], [], True))
        self.assertEqual(packages["added"], records(PACKAGES))
        for record in packages["added"]:
            self.assertEqual(list(record), ["key", "class", "name", "version", "vendor", "extra1", "extra2",
                                            "flags", "description"])
        # One list command, then one query and one file list per package, all through the fake
        # (this machine is Debian, so the collector speaks dpkg-query).
        calls = self.pm_calls()
        self.assertEqual(calls.count("dpkg-query --show --showformat ${Package}"), 1, calls)
        self.assertEqual(len([c for c in calls if "${Version}" in c]), 3, calls)
        self.assertEqual(len([c for c in calls if "--listfiles" in c]), 3, calls)
        self.assertFalse(os.path.exists(self.data + "SWPackage.bin"), "a run without --ack stored a baseline")

    def test_ack_then_no_changes_then_changes(self):
        text = self.swinv("run", "--ack").stdout
        self.assertIn("Packages:  3 added, 0 deleted, 0 changed", text)
        self.assertIn("+ bash 5.2.15-2  [Debian]", text)
        self.assertIn("Acknowledged", text)
        for name in ("SWList.bin", "SWPackage.bin"):
            self.assertTrue(os.path.exists(self.data + name), name)

        again = self.swinv_json("run")
        for kind in ("software", "packages"):
            section = again[kind]
            self.assertEqual((section["added"], section["deleted"], section["changed"], section["baseline_missing"]),
                             ([], [], [], False), kind)

        bash, gcc, _ = PACKAGES
        changed_bash = (bash[0], bash[1], "the shell, described anew", bash[3])
        curl = ("curl", "7.88.1-10", "command line tool for transferring data with URL syntax", "Debian")
        self.write_db([changed_bash, gcc, curl])
        diff = self.swinv_json("run")["packages"]
        self.assertEqual(diff["added"], records([curl]))
        self.assertEqual(diff["deleted"], records([PACKAGES[2]]))
        self.assertEqual(diff["changed"], records([changed_bash]))   # reported with its new contents
        text = self.swinv("run").stdout
        for line in ("+ curl 7.88.1-10  [Debian]", "- zlib1g 1:1.2.13", "~ bash 5.2.15-2  [Debian]", "Not acknowledged"):
            self.assertIn(line, text)

        # A full inventory discards the stored lists: everything is added again.
        full = self.swinv_json("run", "--full")
        self.assertEqual(full["command"], 10)
        self.assertEqual(full["packages"]["added"], records([changed_bash, gcc, curl]))
        self.assertTrue(full["packages"]["baseline_missing"])
        self.assertTrue(full["software"]["baseline_missing"])
        self.assertFalse(os.path.exists(self.data + "SWPackage.bin"))

    def test_progress_only_on_a_terminal(self):
        self.assertNotIn("packages queried", self.swinv("run").stderr)
        if not shutil.which("script"):
            self.skipTest("script(1) is not installed")
        command = shlex.join([SWINV, "--home", self.home, "run"])
        # script(1) gives the run a terminal; it needs an open standard input, which CI may lack.
        done = subprocess.run(["script", "-qec", command, "/dev/null"], capture_output=True, text=True,
                              stdin=subprocess.DEVNULL, env=self.env, timeout=600)
        self.assertEqual(done.returncode, 0, done.stdout)
        self.assertIn("packages queried: 3/3", done.stdout)
        self.assertRegex(done.stdout, r"inventory: 3 packages queried in \d+\.\d s")


class ConfigTest(SwinvCase):
    def test_settings_and_search_paths_reach_the_component(self):
        done = self.swinv("config", 'Mode="5"; Include="/opt|/srv"; Foo="bar"', "--search", "/opt/a",
                          "--search", "/srv/b")
        self.assertIn('Mode="5"', done.stdout)
        self.assertIn('Include="/opt|/srv"', done.stdout)
        self.assertIn("the component does not read the key Foo", done.stderr)
        with open(self.data + ".Software_Inventory_Config") as config:
            lines = config.read().splitlines()
        self.assertEqual(sorted(lines), ["Foo=bar", "Include=/opt|/srv", "Mode=5"])
        self.assertEqual(self.swinv_json("show", self.data + "swsearch.bin")["paths"], ["/opt/a", "/srv/b"])
        self.assertEqual(reader("strings", self.data + "swsearch.bin"), ["/opt/a", "/srv/b"])

        status = self.swinv_json("status")
        settings = {item["key"]: (item["value"], item["from"]) for item in status["config"]["settings"]}
        self.assertEqual(settings["Mode"], ("5", "file"))
        self.assertEqual(settings["Scan"], ("*.jpg|*.bmp", "default"))
        self.assertEqual(settings["RunAtStartup"], ("1", "default"))
        self.assertEqual(status["config"]["other_keys"], {"Foo": "bar"})
        files = {f["name"]: f for f in status["files"]}
        self.assertEqual(files["swsearch.bin"]["records"], 2)
        self.assertFalse(files["SWPackage.bin"]["exists"])

        # Keys not sent keep their values.
        self.swinv("config", 'Logging="1"')
        with open(self.data + ".Software_Inventory_Config") as config:
            self.assertIn("Mode=5", config.read().splitlines())

    def test_mode_4_walks_the_tree_and_leaves_the_packages_out(self):
        self.swinv("run", "--ack")
        tree = os.path.join(self.tmp, "tree")
        os.makedirs(os.path.join(tree, "sub"))
        for name in ("a.jpg", "sub/b.jpg", "sub/c.txt"):
            with open(os.path.join(tree, name), "w") as f:
                f.write("x")
        self.swinv("config", 'Mode="4"; ExtInSelected="1"; IncExt="%s"; Scan="*.jpg"; Logging="1"' % tree)
        os.remove(self.pm_log)

        reply = self.swinv_json("run")
        self.assertEqual(self.pm_calls(), [], "Mode 4 asked the package manager")
        self.assertEqual(reply["packages"]["added"], [])
        self.assertEqual(reply["packages"]["deleted"], records(PACKAGES))
        with open(self.data + "Software.log") as log:
            text = log.read()
        self.assertIn("Check Files: %s/sub/" % tree, text)


class ShowTest(SwinvCase):
    def test_each_kind_of_file_and_agreement_with_the_reader(self):
        saved = os.path.join(self.tmp, "reply.bin")
        run = self.swinv_json("run", "--ack", "--save-reply", saved)
        self.swinv("config", "", "--search", "/opt/x")

        stored = self.swinv_json("show", self.data + "SWPackage.bin")
        self.assertEqual((stored["kind"], stored["file"], stored["count"]), ("inventory map", "SWPackage.bin", 3))
        self.assertEqual(stored["records"], records(PACKAGES))
        self.assertEqual(self.swinv_json("show", self.data + "SWList.bin")["records"], [])
        self.assertEqual(self.swinv_json("show", self.data + "swsearch.bin")["paths"], ["/opt/x"])

        shown = self.swinv_json("show", saved)
        self.assertEqual(shown["kind"], "reply")
        for key in ("scan_time", "software", "packages"):
            self.assertEqual(shown[key], run[key], key)
        independent = reader("reply", saved)
        self.assertEqual(independent["scan_time"], run["scan_time"])
        self.assertEqual([e["key"] for e in independent["packages"]["add"]["entries"]],
                         [r["key"] for r in run["packages"]["added"]])

        # Content decides, not the name.
        renamed = os.path.join(self.tmp, "copy.dat")
        shutil.copy(self.data + "SWPackage.bin", renamed)
        self.assertEqual(self.swinv_json("show", renamed)["kind"], "inventory map")

        table = self.swinv("show", self.data + "SWPackage.bin").stdout
        self.assertIn("SWPackage.bin: inventory list, 3 record(s)", table)
        self.assertRegex(table, r"NAME +VERSION +VENDOR +DESCRIPTION")
        self.assertRegex(table, r"bash +5\.2\.15-2 +Debian +GNU Bourne Again SHell")

    def test_files_that_are_not_lists_or_replies(self):
        text = os.path.join(self.tmp, "notes.txt")
        with open(text, "w") as f:
            f.write("these are notes, not an inventory\n")
        done = self.swinv("show", text, code=1, home=False)
        self.assert_one_line_error(done, text, "is not a list file or reply", "--save-reply")
        self.assertEqual(done.stdout, "")
        self.assert_one_line_error(self.swinv("show", self.tmp, code=1, home=False), "is a folder")
        self.assert_one_line_error(self.swinv("show", text + ".missing", code=1, home=False), "cannot read")


class ErrorTest(SwinvCase):
    def test_bad_usage_exits_2_with_one_line(self):
        self.assert_one_line_error(self.swinv("run", "--bogus", code=2), "--bogus", "swinv run --help")
        self.assert_one_line_error(self.swinv("frobnicate", code=2), "frobnicate")
        self.assert_one_line_error(self.swinv("config", "Mode=5", code=2), "quote every value")
        self.assert_one_line_error(self.swinv("show", code=2, home=False), "FILE")
        self.assert_one_line_error(self.swinv("show", "x", "--skip", "-1", code=2, home=False), "--skip")
        self.assertIn("Usage", self.swinv(code=2, home=False).stderr)

    def test_help_on_every_command(self):
        for command in ([], ["run"], ["config"], ["show"], ["status"]):
            done = self.swinv(*command, "--help", home=False)
            self.assertIn("Examples:", done.stdout, command)
            self.assertIn("swinv", done.stdout)

    def test_missing_or_wrong_library(self):
        missing = os.path.join(self.tmp, "nowhere", "libsoftware.so.0")
        self.assert_one_line_error(self.swinv("--library", missing, "run", code=1), missing, "does not exist")
        not_elf = os.path.join(self.tmp, "libfake.so")
        with open(not_elf, "w") as f:
            f.write("not a shared object")
        self.assert_one_line_error(self.swinv("--library", not_elf, "run", code=1), "cannot load the component library")
        other = sorted(glob.glob("/usr/lib/*/libz.so.1") + glob.glob("/lib/*/libz.so.1"))
        if other:
            self.assert_one_line_error(self.swinv("--library", other[0], "run", code=1),
                                       "is not a component library", "GetComponentApp")

        # A copy of swinv outside the build tree, with nothing installed beside it.
        if os.path.exists("/usr/zev/slib/libsoftware.so.0"):
            self.skipTest("a library is installed in /usr/zev/slib")
        copy = os.path.join(self.tmp, "elsewhere", "bin", "swinv")
        os.makedirs(os.path.dirname(copy))
        shutil.copy(SWINV, copy)
        self.assert_one_line_error(self.swinv("run", code=1, exe=copy), "not found", "/usr/zev/slib", "--library PATH")

    def test_home_that_cannot_be_written(self):
        blocker = os.path.join(self.tmp, "a-file")
        with open(blocker, "w") as f:
            f.write("x")
        done = self.swinv("--home", blocker + "/home", "run", code=1, home=False)
        self.assert_one_line_error(done, "cannot create the home folder", blocker, "--home DIR")
        env = dict(self.env, ZEV_HOME=blocker + "/zev")
        done = self.swinv("status", code=1, home=False, env=env)
        self.assert_one_line_error(done, "cannot create the home folder", "ZEV_HOME")

    def test_home_comes_from_option_environment_or_state_folder(self):
        zev = os.path.join(self.tmp, "zev")
        status = json.loads(self.swinv("status", "--json", home=False, env=dict(self.env, ZEV_HOME=zev)).stdout)
        self.assertEqual((status["home"], status["home_from"]), (zev + "/", "ZEV_HOME"))
        self.assertTrue(os.path.isdir(zev + "/data") and os.path.isdir(zev + "/bin"))

        state = os.path.join(self.tmp, "state")
        status = json.loads(self.swinv("status", "--json", home=False, env=dict(self.env, XDG_STATE_HOME=state)).stdout)
        self.assertEqual((status["home"], status["home_from"]), (state + "/swinv/", "default"))

        user = os.path.join(self.tmp, "user")
        env = dict(self.env, HOME=user)
        env.pop("XDG_STATE_HOME", None)
        status = json.loads(self.swinv("status", "--json", home=False, env=env).stdout)
        self.assertEqual(status["home"], user + "/.local/state/swinv/")


class RealDpkgTest(SwinvCase):
    """One run against this machine's package database."""

    def test_lists_exactly_what_dpkg_reports_and_the_reader_agrees(self):
        if not (os.path.exists("/etc/debian_version") and shutil.which("dpkg-query")):
            self.skipTest("not a Debian machine")
        env = dict(os.environ)
        env.pop("ZEV_HOME", None)
        reply = json.loads(self.swinv("run", "--json", "--ack", env=env).stdout)
        listed = subprocess.run(["dpkg-query", "--show", "--showformat", "${Package}\n"], capture_output=True,
                                text=True, check=True).stdout.split()
        names = [r["key"].split("\\")[0] for r in reply["packages"]["added"]]
        self.assertEqual(sorted(set(names)), sorted(set(listed)))

        shown = json.loads(self.swinv("show", self.data + "SWPackage.bin", "--json", home=False, env=env).stdout)
        independent = reader("map", self.data + "SWPackage.bin")
        self.assertEqual(shown["count"], independent["count"])
        fields = {"name": "m_strName", "version": "m_strVersion", "vendor": "m_strVendor", "extra1": "m_strExtra1",
                  "extra2": "m_strExtra2", "description": "m_strDescription"}
        self.assertEqual(len(shown["records"]), len(independent["entries"]))
        for mine, theirs in zip(shown["records"], independent["entries"]):
            self.assertEqual(mine["key"], from_reader_text(theirs["key"]))
            self.assertEqual(mine["class"], theirs["class"])
            self.assertEqual(mine["flags"], theirs["fields"]["m_nFlags"])
            for field, member in fields.items():
                self.assertEqual(mine[field], from_reader_text(theirs["fields"][member]), (mine["key"], field))
        self.assertEqual(shown["records"], reply["packages"]["added"])


if __name__ == "__main__":
    unittest.main()

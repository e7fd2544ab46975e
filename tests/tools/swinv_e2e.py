#!/usr/bin/env python3
"""End-to-end runs of swinv against the built libsoftware.so.0 in a temporary home, with a fake
package manager first in PATH as dpkg-query and rpm. Environment: SWINV (the executable),
FAKEPM (the fake), ZEVREADER (the independent reader)."""
import glob, json, os, shutil, subprocess, sys, tempfile, unittest
from pathlib import Path

SWINV, FAKEPM, ZEVREADER = (os.environ.get(name, "") for name in ("SWINV", "FAKEPM", "ZEVREADER"))
PACKAGES = [("bash", "5.2.15-2", "GNU Bourne Again SHell", "Debian"),
            ("gcc-12", "12.2.0-14", "GNU C compiler", "Debian"),
            ("zlib1g", "1:1.2.13", "compression library - runtime", "")]
FIELDS = ["key", "class", "name", "version", "vendor", "extra1", "extra2", "flags", "description"]
MEMBERS = {"name": "m_strName", "version": "m_strVersion", "vendor": "m_strVendor", "extra1": "m_strExtra1",
           "extra2": "m_strExtra2", "flags": "m_nFlags", "description": "m_strDescription"}


def records(rows):
    """The component's records for lines of the fake database, in key byte order ("gcc-12" shows as "gcc")."""
    made = [dict(zip(FIELDS, ("%s\\%s\\%s" % (name, vendor, version), "CSoftwarePackageObject",
                              {"gcc-12": "gcc"}.get(name, name), version, vendor or " ", "", "", 128, summary)))
            for name, version, summary, vendor in rows]
    return sorted(made, key=lambda r: r["key"].encode())


def utf8(text):   # the reader keeps bytes as latin-1 characters; swinv prints them as UTF-8
    return text.encode("latin-1").decode("utf-8", errors="replace") if isinstance(text, str) else text


def reader(*args):
    done = subprocess.run([sys.executable, ZEVREADER, *args], capture_output=True, text=True, check=True)
    return json.loads(done.stdout)


class SwinvCase(unittest.TestCase):
    def setUp(self):
        self.tmp = tempfile.mkdtemp(prefix="swinv-e2e-")
        self.addCleanup(shutil.rmtree, self.tmp, True)
        self.home, self.db, self.pm_log = self.path("home/"), self.path("packages.db"), self.path("pm.log")
        self.data = self.home + "data/"
        os.mkdir(self.path("fakebin"))
        for name in ("dpkg-query", "rpm"):
            os.symlink(FAKEPM, self.path("fakebin/" + name))
        self.write_db(PACKAGES)
        self.env = {k: v for k, v in os.environ.items() if k != "ZEV_HOME"}
        self.env.update(PATH=self.path("fakebin") + os.pathsep + self.env["PATH"], FAKE_PM_DB=self.db,
                        FAKE_PM_LOG=self.pm_log)

    def path(self, name):
        return os.path.join(self.tmp, name)

    def write_db(self, rows):
        Path(self.db).write_text("".join("^".join(row) + "\n" for row in rows))

    def swinv(self, *args, code=0, home=True, env=None, exe=None):
        argv = [exe or SWINV] + (["--home", self.home] if home else []) + list(args)
        done = subprocess.run(argv, capture_output=True, text=True, env=env or self.env, timeout=600)
        self.assertEqual(done.returncode, code, "%s\nstdout: %s\nstderr: %s" % (argv, done.stdout[-2000:], done.stderr))
        return done

    def swinv_json(self, *args, **options):
        return json.loads(self.swinv(*args, "--json", **options).stdout)

    def assert_error(self, args, code, *fragments, **options):
        done = self.swinv(*args, code=code, **options)
        lines = done.stderr.strip().splitlines()
        self.assertEqual((len(lines), done.stdout), (1, ""), done.stderr)
        self.assertTrue(lines[0].startswith("swinv: "), lines[0])
        for fragment in fragments:
            self.assertIn(fragment, lines[0])


class RunTest(SwinvCase):
    def test_run_ack_then_again_without_and_with_changes(self):
        reply = self.swinv_json("run")
        self.assertEqual(list(reply), ["kind", "command", "result", "acknowledged", "home", "library", "scan_time",
                                       "software", "packages"])
        self.assertEqual(list(reply.values())[:5], ["reply", 0, 3, False, self.home])
        self.assertTrue(reply["library"].endswith("/libsoftware.so.0"), reply["library"])
        self.assertRegex(reply["scan_time"], r"^\d\d [A-Z][a-z]{2} \d{4} \d\d:\d\d:\d\d$")
        self.assertEqual(list(reply["software"].items()), [("added", []), ("deleted", []), ("changed", []),
                                                           ("reserved", []), ("baseline_missing", True)])
        self.assertEqual(list(reply["packages"].items()), [("added", records(PACKAGES)), ("deleted", []),
                                                           ("changed", []), ("baseline_missing", True)])
        self.assertEqual([list(record) for record in reply["packages"]["added"]], [FIELDS] * 3)
        calls = Path(self.pm_log).read_text().splitlines()   # one list, then one query and one file list per package
        self.assertEqual([sum(p in c for c in calls) for p in ("${Package}", "${Version}", "--listfiles")], [4, 3, 3])

        text = self.swinv("run", "--ack").stdout
        for line in ("Packages:  3 added, 0 deleted, 0 changed", "+ bash 5.2.15-2  [Debian]", "Acknowledged"):
            self.assertIn(line, text)
        again = self.swinv_json("run")
        self.assertEqual([again[kind][k] for kind in ("software", "packages")
                          for k in ("added", "deleted", "changed", "baseline_missing")], [[], [], [], False] * 2)

        bash, gcc, zlib = PACKAGES
        bash2 = bash[:2] + ("the shell, described anew", bash[3])
        curl = ("curl", "7.88.1-10", "command line tool for transferring data with URL syntax", "Debian")
        self.write_db([bash2, gcc, curl])
        diff = self.swinv_json("run")["packages"]
        self.assertEqual(list(diff.values())[:3], [records(r) for r in ([curl], [zlib], [bash2])])
        text = self.swinv("run").stdout
        for line in ("+ curl 7.88.1-10  [Debian]", "- zlib1g 1:1.2.13", "~ bash 5.2.15-2", "Not acknowledged"):
            self.assertIn(line, text)
        full = self.swinv_json("run", "--full")   # discards the stored lists: everything is added again
        self.assertEqual((full["command"], full["packages"]["added"]), (10, records([bash2, gcc, curl])))
        self.assertTrue(full["packages"]["baseline_missing"] and full["software"]["baseline_missing"])


class ConfigTest(SwinvCase):
    def test_config_then_mode_4_over_a_tree(self):
        self.swinv("run", "--ack")
        done = self.swinv("config", 'Mode="5"; Foo="bar"', "--search", "/opt/a", "--search", "/srv/b")
        self.assertIn('Mode="5"', done.stdout)
        self.assertIn("the component does not read the key Foo", done.stderr)
        config = self.data + ".Software_Inventory_Config"
        self.assertEqual(sorted(Path(config).read_text().splitlines()), ["Foo=bar", "Mode=5"])
        self.assertEqual(reader("strings", self.data + "swsearch.bin"), ["/opt/a", "/srv/b"])
        status = self.swinv_json("status")
        settings = {item["key"]: (item["value"], item["from"]) for item in status["config"]["settings"]}
        self.assertEqual((settings["Mode"], settings["Scan"]), (("5", "file"), ("*.jpg|*.bmp", "default")))
        self.assertEqual(status["config"]["other_keys"], {"Foo": "bar"})
        status = self.swinv_json("status", home=False, env=dict(self.env, XDG_STATE_HOME=self.path("state")))
        self.assertEqual((status["home"], status["home_from"]), (self.path("state/swinv/"), "default"))

        tree = self.path("tree")
        os.makedirs(tree + "/sub")
        for name in ("a.jpg", "sub/b.jpg", "sub/c.txt"):
            Path(os.path.join(tree, name)).write_text("x")
        self.swinv("config", 'Mode="4"; ExtInSelected="1"; IncExt="%s"; Scan="*.jpg"; Logging="1"' % tree)
        self.assertIn("Foo=bar", Path(config).read_text().splitlines())   # keys not sent keep their values
        os.remove(self.pm_log)
        packages = self.swinv_json("run")["packages"]
        self.assertFalse(os.path.exists(self.pm_log), "Mode 4 asked the package manager")
        self.assertEqual((packages["added"], packages["deleted"]), ([], records(PACKAGES)))
        self.assertIn("Check Files: %s/sub/" % tree, Path(self.data + "Software.log").read_text())


class ShowTest(SwinvCase):
    def test_each_kind_of_file(self):
        saved = self.path("reply.bin")
        run = self.swinv_json("run", "--ack", "--save-reply", saved)
        self.swinv("config", "", "--search", "/opt/x")
        stored = self.swinv_json("show", self.data + "SWPackage.bin")
        self.assertEqual([stored[k] for k in ("kind", "file", "count", "records")],
                         ["inventory map", "SWPackage.bin", 3, records(PACKAGES)])
        self.assertEqual(self.swinv_json("show", self.data + "SWList.bin")["records"], [])
        self.assertEqual(self.swinv_json("show", self.data + "swsearch.bin")["paths"], ["/opt/x"])
        shown = self.swinv_json("show", saved)
        self.assertEqual([shown[k] for k in ("kind", "scan_time", "software", "packages")],
                         ["reply", run["scan_time"], run["software"], run["packages"]])
        table = self.swinv("show", self.data + "SWPackage.bin").stdout
        self.assertRegex(table, r"SWPackage.bin: inventory list, 3 record\(s\)\n +NAME +VERSION +VENDOR +DESCRIPTION\n"
                                r" +bash +5\.2\.15-2 +Debian +GNU Bourne Again SHell\n")


class ErrorTest(SwinvCase):
    def test_bad_arguments_exit_2_and_help_on_every_command(self):
        self.assert_error(["run", "--bogus"], 2, "--bogus", "swinv run --help")
        self.assert_error(["frobnicate"], 2, "frobnicate")
        self.assert_error(["config", "Mode=5"], 2, "quote every value")
        self.assert_error(["show"], 2, "FILE", home=False)
        self.assert_error(["show", "x", "--skip", "-1"], 2, "--skip", home=False)
        self.assertIn("Usage", self.swinv(code=2, home=False).stderr)
        for command in ([], ["run"], ["config"], ["show"], ["status"]):
            self.assertIn("Examples:", self.swinv(*command, "--help", home=False).stdout, command)

    def test_failures_exit_1_with_one_line(self):
        notes = self.path("notes.txt")
        Path(notes).write_text("these are notes, not an inventory\n")
        self.assert_error(["show", notes], 1, notes, "is not a list file or reply", "--save-reply", home=False)
        self.assert_error(["show", self.tmp], 1, "is a folder", home=False)
        self.assert_error(["show", notes + ".missing"], 1, "cannot read", home=False)
        self.assert_error(["--home", notes + "/home", "run"], 1, "cannot create the home folder", notes, "--home DIR",
                          home=False)
        self.assert_error(["status"], 1, "cannot create the home folder", "ZEV_HOME", home=False,
                          env=dict(self.env, ZEV_HOME=notes + "/zev"))
        missing = self.path("nowhere/libsoftware.so.0")
        self.assert_error(["--library", missing, "run"], 1, missing, "does not exist")
        self.assert_error(["--library", notes, "run"], 1, "cannot load the component library", "--library PATH")
        other = sorted(glob.glob("/usr/lib/*/libz.so.1") + glob.glob("/lib/*/libz.so.1"))
        if other:
            self.assert_error(["--library", other[0], "run"], 1, "is not a component library", "GetComponentApp")
        if os.path.exists("/usr/zev/slib/libsoftware.so.0"):
            self.skipTest("a library is installed in /usr/zev/slib")
        copy = self.path("elsewhere/bin/swinv")   # outside the build tree, nothing installed beside it
        os.makedirs(os.path.dirname(copy))
        shutil.copy(SWINV, copy)
        self.assert_error(["run"], 1, "not found", "/usr/zev/slib", "--library PATH", exe=copy)


class RealDpkgTest(SwinvCase):
    def test_lists_exactly_what_dpkg_reports_and_the_reader_agrees(self):
        if not shutil.which("dpkg-query"):
            self.skipTest("no dpkg-query on this machine")
        env = {k: v for k, v in os.environ.items() if k != "ZEV_HOME"}
        added = self.swinv_json("run", "--ack", env=env)["packages"]["added"]
        listed = subprocess.run(["dpkg-query", "--show", "--showformat", "${Package}\n"], capture_output=True,
                                text=True, check=True).stdout.split()
        self.assertEqual(sorted({r["key"].split("\\")[0] for r in added}), sorted(set(listed)))
        shown = self.swinv_json("show", self.data + "SWPackage.bin", env=env)["records"]
        self.assertEqual(shown, added)
        self.assertEqual(shown, [dict({"key": utf8(e["key"]), "class": e["class"]},
                                      **{mine: utf8(e["fields"][theirs]) for mine, theirs in MEMBERS.items()})
                                 for e in reader("map", self.data + "SWPackage.bin")["entries"]])


if __name__ == "__main__":
    unittest.main()

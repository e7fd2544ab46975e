#!/usr/bin/env python3
"""End-to-end runs of swinv against the built libsoftware.so.0 in a temporary home, FAKEPM first in PATH as dpkg-query
and rpm; its manual pages and bash completion. Environment: SWINV, FAKEPM, ZEVREADER_DIR, FORMAT_EXAMPLES."""
import glob, json, os, re, shutil, subprocess, sys, tempfile, unittest
from pathlib import Path

SWINV, FAKEPM, ZEVREADER_DIR, FORMAT_EXAMPLES = (os.environ.get(name, "") for name in (
    "SWINV", "FAKEPM", "ZEVREADER_DIR", "FORMAT_EXAMPLES"))
PACKAGES = [("bash", "5.2.15-2", "GNU Bourne Again SHell", "Debian"),
            ("gcc-12", "12.2.0-14", "GNU C compiler", "Debian"), ("zlib1g", "1:1.2.13", "compression library", "")]
FIELDS = ["key", "class", "name", "version", "vendor", "extra1", "extra2", "flags", "description"]
SOURCE = os.path.join(os.path.dirname(os.path.abspath(__file__)), "..", "..")
COMMANDS = ["run", "config", "show", "status"]


def as_shown(entry):
    """A zevreader map entry as swinv shows it: m_strCompanyName is "company"; latin-1 bytes printed as UTF-8."""
    fields = {re.sub("^m_(str|n)", "", k).lower().replace("companyname", "company"): v for k, v in entry["fields"].items()}
    return {k: v.encode("latin-1").decode("utf-8", "replace") if isinstance(v, str) else v
            for k, v in dict(fields, key=entry["key"], **{"class": entry["class"]}).items()}


def output(*argv):
    """What a command prints, standard error included, with the reader's package from ZEVREADER_DIR."""
    return subprocess.run(argv, stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True,
                          env=dict(os.environ, PYTHONPATH=ZEVREADER_DIR)).stdout


def zevreader(*args):
    return json.loads(output(sys.executable, "-m", "zevreader", *args))


def options(help_text):
    """The long options a --help text lists, but --help itself."""
    return sorted(set(re.findall(r"^\s+(?:-\w, ?|-\w,)?(--[a-z][\w-]*)", help_text, re.M)) - {"--help"})


def complete(*words, cwd=None):
    """What the completion offers after swinv `words`, the last one being the word under the cursor."""
    script = 'source "$1"; shift; COMP_WORDS=("$@"); COMP_CWORD=$(($# - 1)); _swinv; printf "%s\\n" "${COMPREPLY[@]}"'
    completion = os.path.join(SOURCE, "tools/swinv/swinv.bash-completion")
    done = subprocess.run(["bash", "-c", script, "bash", completion, "swinv", *words], stdout=subprocess.PIPE,
                          text=True, cwd=cwd, check=True)
    return sorted(line for line in done.stdout.splitlines() if line)


def records(rows):
    """The component's records for lines of the fake database, in key byte order ("gcc-12" shows as "gcc")."""
    return sorted((dict(zip(FIELDS, ("%s\\%s\\%s" % (name, vendor, version), "CSoftwarePackageObject",
                                     {"gcc-12": "gcc"}.get(name, name), version, vendor or " ", "", "", 128, summary)))
                   for name, version, summary, vendor in rows), key=lambda r: r["key"].encode())


class SwinvCase(unittest.TestCase):
    def setUp(self):
        self.tmp = self.enterContext(tempfile.TemporaryDirectory(prefix="swinv-e2e-", ignore_cleanup_errors=True))
        self.path = lambda name: os.path.join(self.tmp, name)
        self.home, self.data, self.db = (self.path(n) for n in ("home/", "home/data/", "db"))
        os.mkdir(self.path("fakebin"))
        for name in ("dpkg-query", "rpm"):
            os.symlink(FAKEPM, self.path("fakebin/" + name))
        self.write_db(PACKAGES)
        self.env = dict({k: v for k, v in os.environ.items() if k != "ZEV_HOME"}, FAKE_PM_DB=self.db,
                        PATH=self.path("fakebin:") + os.environ["PATH"])

    def write_db(self, rows):
        Path(self.db).write_text("".join("^".join(row) + "\n" for row in rows))

    def swinv(self, *args, code=0, home=True, env=None, exe=None):
        argv = [exe or SWINV] + (["--home", self.home] if home else []) + list(args)
        done = subprocess.run(argv, capture_output=True, text=True, env=env or self.env, timeout=600)
        self.assertEqual(done.returncode, code, "%s\nstdout: %s\nstderr: %s" % (argv, done.stdout[-2000:], done.stderr))
        return done

    def swinv_json(self, *args, **options):
        return json.loads(self.swinv(*args, "--json", **options).stdout)

    def assert_error(self, args, code, *fragments, exe=None):   # one "swinv: " line on stderr, nothing on stdout
        done = self.swinv(*args, code=code, home=False, exe=exe)
        self.assertEqual((done.stdout, done.stderr.count("\n"), done.stderr[:7]), ("", 1, "swinv: "), done.stderr)
        self.assertEqual([fragment for fragment in fragments if fragment not in done.stderr], [], done.stderr)


# What "swinv run" prints when everything is added: {time} is the scan time, {home} the home folder.
FIRST_RUN = """Scan time: {time}
Software:  0 added, 0 deleted, 0 changed  (no stored list: everything counts as added)
Packages:  3 added, 0 deleted, 0 changed  (no stored list: everything counts as added)

Packages added (3):
  + bash 5.2.15-2  [Debian]
  + gcc 12.2.0-14  [Debian]
  + zlib1g 1:1.2.13

"""
NOT_ACKNOWLEDGED = "Not acknowledged: the stored baseline is unchanged; 'swinv run --ack' stores this inventory.\n"


class RunTest(SwinvCase):
    def test_run_printed_whole_saved_acknowledged_changed_and_full(self):
        saved = self.path("reply.bin")
        bash2, curl = ("bash", "5.2.15-2", "the shell, anew", "Debian"), ("curl", "7.88.1-10", "URL tool", "Debian")
        rows = [(PACKAGES, ["run", "--save-reply", saved], FIRST_RUN + NOT_ACKNOWLEDGED + "Reply saved to %s.\n" % saved),
                (PACKAGES, ["run", "--ack"],
                 FIRST_RUN + "Acknowledged: this inventory is now the stored baseline in {home}data/.\n"),
                ([bash2, PACKAGES[1], curl], ["run"], """Scan time: {time}
Software:  0 added, 0 deleted, 0 changed
Packages:  1 added, 1 deleted, 1 changed

Packages added (1):
  + curl 7.88.1-10  [Debian]

Packages deleted (1):
  - zlib1g 1:1.2.13

Packages changed (1):
  ~ bash 5.2.15-2  [Debian]

""" + NOT_ACKNOWLEDGED)]   # the fake database, the arguments, the whole output
        for db, args, expected in rows:
            self.write_db(db)
            printed = self.swinv(*args).stdout
            time = re.match(r"Scan time: (\d\d [A-Z][a-z]{2} \d{4} \d\d:\d\d:\d\d)\n", printed)
            self.assertEqual(printed, expected.format(time=time and time.group(1), home=self.home), args)
            if "--save-reply" in args:   # shown from the saved bytes, the same inventory
                shown = self.swinv("show", saved).stdout
                self.assertEqual(shown, "reply.bin: inventory reply\n" + printed[:printed.index("\nNot")])

        full = self.swinv_json("run", "--full", "--ack")   # discards the stored lists: everything is added again
        self.assertRegex(full["library"], r"/libsoftware\.so\.0$")
        self.assertEqual(json.dumps(full, indent=1), json.dumps(dict(   # the order of the members counts too
            kind="reply", command=10, result=3, acknowledged=True, home=self.home, library=full["library"],
            scan_time=full["scan_time"], software=dict(added=[], deleted=[], changed=[], reserved=[], baseline_missing=True),
            packages=dict(added=records([bash2, PACKAGES[1], curl]), deleted=[], changed=[], baseline_missing=True)), indent=1))


class ConfigTest(SwinvCase):
    def test_config_then_status_on_the_clock_of_now_and_the_default_home(self):
        batch = lambda report: [s for s in report["config"]["settings"] if s["key"] == "BatchQuery"][0]
        self.assertEqual([(batch(report)["value"], batch(report)["from"]) for report in (
            self.swinv_json("status"), self.swinv_json("config", 'Mode="1"'))], [("1", "default")] * 2)
        self.swinv("config", 'Mode="3"; BatchQuery="0"')   # both replaced by the next
        done = self.swinv("config", 'Mode="5"; Foo="bar"; BatchQuery="1"', "--search", "/opt/a", "--search", "/srv/b")
        self.assertIn('Mode="5"', done.stdout)
        self.assertEqual(re.findall(r"the component does not read the key (\w+);", done.stderr), ["Foo"])
        self.assertEqual(sorted(Path(self.data + ".Software_Inventory_Config").read_text().splitlines()),
                         ["BatchQuery=1", "Foo=bar", "Mode=5"])
        self.assertEqual(self.swinv_json("show", self.data + "swsearch.bin")["paths"], ["/opt/a", "/srv/b"])
        files = {item["name"]: item for item in self.swinv_json("status")["files"]}   # what it shows: the unit table
        self.assertTrue(0 <= files[".Software_Inventory_Config"]["age_seconds"] < 60, files)
        status = self.swinv_json("status", home=False, env=dict(self.env, XDG_STATE_HOME=self.path("state")))
        self.assertEqual((status["home"], status["home_from"]), (self.path("state/swinv/"), "default"))


class ErrorTest(SwinvCase):
    def test_bad_arguments_exit_2_help_on_every_command_failures_exit_1(self):
        Path(notes := self.path("notes.txt")).write_text("these are notes, not an inventory\n")
        home, missing = ["--home", self.home], self.path("nowhere/libsoftware.so.0")
        other = sorted(glob.glob("/usr/lib/*/libz.so.1") + glob.glob("/lib/*/libz.so.1"))[:1]   # a library, not ours
        rows = [  # the arguments, exit status, and what the one line on standard error says
            (home + ["run", "--bogus"], 2, "--bogus", "swinv run --help"), (home + ["config", "Mode=5"], 2, "quote every value"),
            (["show"], 2, "FILE"), (["show", notes], 1, notes, "is not a list file or reply", "--save-reply"),
            (["show", notes + ".missing"], 1, "cannot read"),
            (["--home", notes + "/h", "run"], 1, "cannot create the home", notes, "--home DIR"),
            (home + ["--library", missing, "run"], 1, missing, "does not exist"),
            (home + ["--library", notes, "run"], 1, "cannot load the component library", "--library PATH")] + [
            (home + ["--library", other[0], "run"], 1, "is not a component library", "GetComponentApp")] * len(other)
        for args, code, *fragments in rows:
            self.assert_error(args, code, *fragments)
        self.assertIn("Usage", self.swinv(code=2, home=False).stderr)
        for command in [""] + COMMANDS:
            self.assertIn("Examples:", self.swinv(*command.split(), "--help", home=False).stdout, command)
        if os.path.exists("/usr/zev/slib/libsoftware.so.0"):
            self.skipTest("a library is installed in /usr/zev/slib")
        os.mkdir(self.path("elsewhere"))   # outside the build tree, nothing installed beside it
        copy = shutil.copy(SWINV, self.path("elsewhere/swinv"))
        self.assert_error(home + ["run"], 1, "not found", "/usr/zev/slib", "--library PATH", exe=copy)


class RealDpkgTest(SwinvCase):
    @unittest.skipUnless(shutil.which("dpkg-query"), "no dpkg-query on this machine")
    def test_lists_exactly_what_dpkg_reports_the_reader_agrees_and_a_batch_query_gives_the_same(self):
        env = dict(self.env, PATH=os.environ["PATH"])   # the fake no longer first
        self.swinv("config", 'BatchQuery="0"', env=env)   # one query per package
        added = self.swinv_json("run", "--ack", env=env)["packages"]["added"]
        listed = subprocess.check_output(["dpkg-query", "--show", "--showformat", "${Package}\n"], text=True).split()
        self.assertEqual(sorted({r["key"].split("\\")[0] for r in added}), sorted(set(listed)))
        self.assertEqual(added, [as_shown(e) for e in zevreader("map", self.data + "SWPackage.bin")["entries"]])
        self.swinv("config", 'BatchQuery="1"', env=env)   # one call for all packages
        self.assertEqual(self.swinv_json("run", "--full", env=env)["packages"]["added"], added)


class ReaderAgreementTest(SwinvCase):
    # The lists and the reply of the formats document's examples, with zevreader's command for each.
    EXAMPLES = {"SWPackage.bin": "map", "SWList.bin": "map", "executables.bin": "map", "sources.bin": "map",
                "swsearch.bin": "strings", "reply.bin": "reply"}
    PARTS = {"added": "add", "deleted": "delete", "changed": "change", "reserved": "empty"}

    @unittest.skipUnless(FORMAT_EXAMPLES, "FORMAT_EXAMPLES is not set")
    def test_show_and_zevreader_agree_on_every_kind_of_list_and_the_reply(self):
        examples, classes = self.path("examples/"), set()
        subprocess.run([FORMAT_EXAMPLES, examples], check=True)
        for name, kind in self.EXAMPLES.items():
            shown, read = self.swinv_json("show", examples + name, home=False), zevreader(kind, examples + name)
            if kind == "map":
                classes |= {e["class"] for e in read["entries"]}
                self.assertEqual((shown["kind"], shown["records"]), ("inventory map", [as_shown(e) for e in read["entries"]]))
            elif kind == "strings":
                self.assertEqual((shown["kind"], shown["paths"]), ("search paths", read))
            else:
                group = lambda read: dict({mine: [as_shown(e) for e in read[theirs]["entries"]]
                                           for mine, theirs in self.PARTS.items() if theirs in read},
                                          baseline_missing=bool(read["full"]))
                self.assertEqual(shown, dict(kind="reply", file=name, scan_time=read["scan_time"],
                                             software=group(read["software"]), packages=group(read["packages"])))
        self.assertEqual(classes, {"CSoftwarePackageObject", "CSoftwareObject"})


@unittest.skipUnless(shutil.which("mandoc"), "mandoc is missing (apt-get install mandoc)")
class ManualAndCompletion(SwinvCase):
    def test_pages_lint_clean_and_they_and_the_completion_know_every_command_option_and_key(self):
        pages = [os.path.join(SOURCE, "tools/swinv/swinv.1"), os.path.join(ZEVREADER_DIR, "zevreader.1")]
        for page in pages:
            self.assertEqual(output("mandoc", "-T", "lint", "-W", "warning", page), "", page)
        swinv_page = Path(pages[0]).read_text()
        named = set(re.findall(r"Fl -([\w-]+)", swinv_page))
        for command in [""] + COMMANDS:   # every option of every command, in the page and offered after "--"
            listed = options(output(SWINV, *command.split(), "--help"))
            self.assertEqual([o for o in listed if o[2:] not in named], [], command)
            self.assertEqual(complete(*command.split(), "--"), sorted(listed + ["--help"]), command)
            if command:
                self.assertIn(".It Cm %s" % command, swinv_page)
        keys = [item["key"] for item in self.swinv_json("status")["config"]["settings"]]
        self.assertGreaterEqual(len(keys), 10)
        self.assertEqual([key for key in keys if ".It Cm %s\n" % key not in swinv_page], [])
        self.assertEqual([key for key in keys if "'%s=\"" % key not in complete("config", "")], [])

        cwd = self.path("cwd")   # the completion of commands, files and keys
        os.makedirs(cwd + "/home")
        for name in ("reply.bin", "notes.txt"):
            Path(cwd, name).write_text("")
        cases = [("", ["--home", "--library", "--help"] + COMMANDS), ("--home ", ["home"]),
                 ("--home home --library x r", ["run"]), ("show r", ["reply.bin"]), ("show --skip ", []),
                 ("show ", ["home", "notes.txt", "reply.bin"]), ("run --save-reply n", ["notes.txt"]),
                 ("config Sc", ["'Scan=\""]), ("config 'Ex", ["'ExtInSelected=\"", "'Exclude=\""]),
                 ("config --search ", ["home"])]
        for words, expected in cases:
            self.assertEqual(complete(*words.split(" "), cwd=cwd), sorted(expected), words)


if __name__ == "__main__":
    unittest.main()

#!/usr/bin/env python3
"""check_manual.py SOURCE_DIR (SWINV and ZEVREADER_DIR in the environment): the manual pages swinv(1) and
zevreader(1) lint clean, name every command, option and settings key the programs know, and the bash completion
offers them. Exit 77 when mandoc is missing."""
import json, os, re, shutil, subprocess, sys, tempfile, unittest

SOURCE = sys.argv.pop(1)
SWINV, READER_DIR = os.environ["SWINV"], os.environ["ZEVREADER_DIR"]
PAGES = {"swinv": os.path.join(SOURCE, "tools/swinv/swinv.1"), "zevreader": os.path.join(READER_DIR, "zevreader.1")}
COMPLETION = os.path.join(SOURCE, "tools/swinv/swinv.bash-completion")
COMMANDS = ["run", "config", "show", "status"]


def output(*argv):
    return subprocess.run(argv, stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True,
                          env=dict(os.environ, PYTHONPATH=READER_DIR)).stdout


def options(help_text):
    """The long options a --help text lists, but --help itself."""
    return sorted(set(re.findall(r"^\s+(?:-\w, ?|-\w,)?(--[a-z][\w-]*)", help_text, re.M)) - {"--help"})


def complete(*words, cwd=None):
    """What the completion offers after `words`, the last one being the word under the cursor."""
    script = 'source "$1"; shift; COMP_WORDS=("$@"); COMP_CWORD=$(($# - 1)); _swinv; printf "%s\\n" "${COMPREPLY[@]}"'
    done = subprocess.run(["bash", "-c", script, "bash", COMPLETION, *words], stdout=subprocess.PIPE, text=True,
                          cwd=cwd, check=True)
    return [line for line in done.stdout.splitlines() if line]


class ManualPages(unittest.TestCase):
    def test_pages_lint_clean_and_name_every_command_option_and_key(self):
        for name, page in PAGES.items():
            done = subprocess.run(["mandoc", "-T", "lint", "-W", "warning", page], stdout=subprocess.PIPE,
                                  stderr=subprocess.STDOUT, text=True)
            self.assertEqual((done.returncode, done.stdout), (0, ""), name)
        with open(PAGES["swinv"]) as f:
            swinv_page = f.read()
        named = set(re.findall(r"Fl -([\w-]+)", swinv_page))
        for command in [[]] + [[c] for c in COMMANDS]:
            self.assertEqual([o for o in options(output(SWINV, *command, "--help")) if o[2:] not in named], [], command)
            if command:
                self.assertIn(".It Cm %s" % command[0], swinv_page)
        with tempfile.TemporaryDirectory() as home:
            keys = [item["key"] for item in json.loads(output(SWINV, "--home", home, "status", "--json"))["config"]["settings"]]
        self.assertGreaterEqual(len(keys), 10)
        self.assertEqual([key for key in keys if ".It Cm %s\n" % key not in swinv_page], [])
        self.assertEqual([key for key in keys if "'%s=\"" % key not in complete("swinv", "config", "")], [])

        with open(PAGES["zevreader"]) as f:
            reader_page = f.read()
        reader_help = output(sys.executable, "-m", "zevreader", "--help")
        commands = re.findall(r"^    ([a-z][\w-]+)", reader_help, re.M)
        self.assertEqual((len(commands), [c for c in commands if not re.search(r"\.It Cm %s\b" % c, reader_page)]), (5, []))
        for command in [[]] + [[c] for c in commands]:
            missing = [o for o in options(output(sys.executable, "-m", "zevreader", *command, "--help"))
                       if "Fl -%s" % o[2:] not in reader_page and not (o == "--output" and "Fl o Ar OUT" in reader_page)]
            self.assertEqual(missing, [], command)


class Completion(unittest.TestCase):
    def test_commands_options_files_and_keys(self):
        with tempfile.TemporaryDirectory() as tmp:
            for name in ("reply.bin", "notes.txt", "home/"):
                open(os.path.join(tmp, name), "w").close() if not name.endswith("/") else os.mkdir(os.path.join(tmp, name))
            cases = [(["swinv", ""], ["--home", "--library", "--help"] + COMMANDS),
                     (["swinv", "s"], ["show", "status"]),
                     (["swinv", "--home", "h"], ["home"]),
                     (["swinv", "--home", "home", "--library", "x", "r"], ["run"]),
                     (["swinv", "show", "r"], ["reply.bin"]),
                     (["swinv", "show", ""], ["home", "notes.txt", "reply.bin"]),
                     (["swinv", "run", "--save-reply", "n"], ["notes.txt"]),
                     (["swinv", "show", "--skip", ""], []),
                     (["swinv", "config", "Sc"], ["'Scan=\""]),
                     (["swinv", "config", "'Ex"], ["'ExtInSelected=\"", "'Exclude=\""]),
                     (["swinv", "config", "--"], ["--search", "--json", "--help"]),
                     (["swinv", "config", "--search", "h"], ["home"])]
            for words, expected in cases:
                self.assertEqual(sorted(complete(*words, cwd=tmp)), sorted(expected), words)
        for command in COMMANDS:   # every option of every command
            self.assertEqual(sorted(complete("swinv", command, "--")),
                             sorted(options(output(SWINV, command, "--help")) + ["--help"]), command)


if __name__ == "__main__":
    if not shutil.which("mandoc"):
        print("mandoc is missing (apt-get install mandoc)")
        sys.exit(77)
    unittest.main(argv=[sys.argv[0], "-v"])

#!/usr/bin/env python3
"""Fault injection: swinv and the built libsoftware.so.0 under a failing package manager, a full or read-only data
folder, a low descriptor limit and cut list files, each case in a private mount namespace (unshare -m, root only).
Environment as for swinv_e2e.py."""
import json, os, subprocess, tempfile, unittest
from pathlib import Path

from swinv_e2e import PACKAGES, SWINV, SwinvCase, records

NO_INVENTORY = "swinv: the component sent no inventory (Execute returned 0); its log says: "
# Inside the namespace: the Debian marker files as a case wants them, on an overlay of /etc.
MARKERS = {"debian": "touch /etc/debian_version", "none": "rm -f /etc/debian_version /etc/debian-release"}
FULL_DATA = "mount -t tmpfs -o size=64k tmpfs home/data"
FILL = "dd if=/dev/zero of=home/data/filler bs=4k 2>/dev/null || true"
READ_ONLY = "mount --bind home/data home/data && mount -o remount,bind,ro home/data"
CUT = "head -c $(($(stat -c %s full.bin) * {tenths} / 10)) full.bin > home/data/SWPackage.bin"
ABORTED = "arcobj.cpp(925): assertion failed\n"
CHANGED = PACKAGES[:2] + [("curl", "7.88.1-10", "URL tool", "Debian")]
CHANGED_RECORDS = records(CHANGED)   # bash, curl, gcc-12
# A row: the fault (shell, after the baseline run; `limit` in swinv's own shell), its environment, swinv's arguments,
# and what must follow: exit status, standard error ({data}: the data folder), the packages added (None: no reply
# printed), the log's lines in order, and the files in data/ besides the configuration and log. The baseline keeps its
# bytes unless a run is stored.
DEFAULT = dict(args=["run"], fault="", limit="", env={}, markers="debian", data="", baseline=True, config="", code=0,
               stderr="", added=None, log=["Check Files: /usr/dra/"], files=["SWList.bin", "SWPackage.bin"])


def case(name, **row):
    return dict(DEFAULT, name=name, **row)


def list_failed(name, why, **row):
    """The package list fails: no inventory, and swinv passes on the component's reason."""
    failed = "Package list failed: %s: dpkg-query --show --showformat '${Package}\\n'" % why
    return case(name, code=1, stderr=NO_INVENTORY + failed + "; Scan Packages failed\n", log=[failed, "Scan Packages failed"],
                **row)


def not_stored(name, why, **row):
    """The acknowledged run's list files cannot be written: nothing is stored, and swinv says why."""
    writing = "Writing to file [{data}SWPackage.bin]"
    message = "swinv: the baseline could not be stored: {data}SWList.bin: %s; {data}SWPackage.bin: %s; nothing was stored\n"
    return case(name, **dict(dict(args=["run", "--ack", "--json"], code=1, log=[writing, writing + " failed: " + why],
                                  stderr=message % (why, why)), **row))


CASES = [
    list_failed("list exits 2", "exit status 2", env=dict(FAKE_PM_FAULT="list-exit")),
    list_failed("list exits 2, full inventory", "exit status 2", args=["run", "--full", "--ack"],
                env=dict(FAKE_PM_FAULT="list-exit")),
    list_failed("list killed after its first line", "exit status 137 (killed by signal 9, Killed)",
                env=dict(FAKE_PM_FAULT="list-kill")),
    list_failed("dpkg-query missing on a Debian machine", "exit status 127 (command not found)",
                env=dict(PATH="{tmp}/empty")),
    list_failed("descriptor limit too low for popen", "not started (Too many open files)", args=["run", "--ack"],
                limit="ulimit -n 4"),
    case("no package manager at all", args=["run", "--json"], env=dict(PATH="{tmp}/empty"), markers="none",
         baseline=False, added=[], files=[], log=["Scan Packages", "No package manager found: no Debian marker file and "
                                                  "no rpm on the search path", "Check Files: /usr/dra/"]),
    case("batch call fails", args=["run", "--json"], config="BatchQuery=1\n", env=dict(FAKE_PM_FAULT="batch-fail"),
         baseline=False, added=CHANGED_RECORDS, files=[],
         log=["Scan Packages", "Batch query not used: the batch command failed; querying each package"]),
    not_stored("data folder full at DataSent", "No space left on device", data=FULL_DATA, fault=FILL,
               added=[CHANGED_RECORDS[1]], files=["SWList.bin", "SWPackage.bin", "filler"]),
    not_stored("data folder full at DataSent, no baseline", "No space left on device", data=FULL_DATA, fault=FILL,
               baseline=False, added=CHANGED_RECORDS, files=["filler"]),
    # With the log off, swinv finds the reason in the folder itself.
    not_stored("data folder read-only", "Read-only file system", fault=READ_ONLY, added=[CHANGED_RECORDS[1]],
               config="Logging=0\n", log=[]),
] + [
    # A stored list cut short is no baseline: everything counts as added again, unless the cut falls inside a string,
    # where the archive ends the process by design (code None: either).
    case("package list cut at %d tenths" % tenths, args=["run", "--json"], fault=CUT.format(tenths=tenths), code=None,
         added=CHANGED_RECORDS)
    for tenths in range(10)
]


@unittest.skipUnless(os.geteuid() == 0 or os.environ.get("CI") == "true", "needs root for private mount namespaces")
class FaultTest(SwinvCase):
    def run_case(self, row):
        """Runs one row in a fresh folder inside a private mount namespace; returns what came out."""
        self.write_db(PACKAGES)
        tmp = self.enterContext(tempfile.TemporaryDirectory(prefix="swinv-fault-"))
        script = "\n".join([
            "set -e", "cd \"$T\"", "mkdir -p home/data empty scratch",
            "mount -t tmpfs tmpfs scratch && mkdir scratch/u scratch/w",
            "mount -t overlay overlay -o lowerdir=/etc,upperdir=scratch/u,workdir=scratch/w /etc",
            MARKERS[row["markers"]], row["data"], "ln -s \"$T/Software.log\" home/data/Software.log",
            "keep() { [ ! -f home/data/SWPackage.bin ] || cp home/data/SWPackage.bin $1; }",
            "printf '%sLogging=1\\n' \"$CONFIG\" > home/data/.Software_Inventory_Config",   # the first value counts
            "[ -z \"$BASELINE\" ] || \"$SWINV\" --home home/ run --ack > /dev/null", "keep full.bin",
            "printf '%s\\n' curl^7.88.1-10^URL\\ tool^Debian >> \"$FAKE_PM_DB\"; sed -i '/^zlib1g/d' \"$FAKE_PM_DB\"",
            ": > Software.log", row["fault"], "keep before.bin", "set +e",
            "(eval \"$LIMIT\"; exec env $FAULT_ENV \"$SWINV\" --home \"$T/home/\" \"$@\") > out 2> err; echo $? > code",
            "ls -A home/data > files", "keep after.bin"])
        fault_env = " ".join("%s=%s" % (key, value.format(tmp=tmp)) for key, value in row["env"].items())
        subprocess.run(["unshare", "-m", "--propagation", "private", "sh", "-c", script, "fault"] + row["args"],
                       check=True, timeout=120, env=dict(self.env, T=tmp, SWINV=SWINV, CONFIG=row["config"],
                                                         BASELINE="1" if row["baseline"] else "", FAULT_ENV=fault_env,
                                                         LIMIT=row["limit"]))
        read = lambda name: Path(tmp, name).read_bytes() if Path(tmp, name).exists() else None
        return dict(data=tmp + "/home/data/", code=int(read("code")), out=read("out").decode(), err=read("err").decode(),
                    files=sorted(set(read("files").decode().split()) - {".Software_Inventory_Config", "Software.log"}),
                    before=read("before.bin"), after=read("after.bin"),
                    log=[line[19:] for line in read("Software.log").decode().splitlines()])

    def test_every_fault_fails_as_a_failure(self):
        for row in CASES:
            if row["limit"] and os.environ.get("SWINV_SANITIZED"):
                continue   # the sanitizers' memory checks need a pipe of their own; the plain build runs it
            with self.subTest(row["name"]):
                got = self.run_case(row)
                fill = lambda text: text.replace("{data}", got["data"])
                if row["code"] is None and got["code"] == 134:   # the one assertion of the archive
                    row = dict(row, code=134, stderr=ABORTED, added=None)
                # The last line of standard error is swinv's; the package manager's own may come before it.
                self.assertEqual((got["code"], got["err"].splitlines()[-1:]),
                                 (row["code"] or 0, fill(row["stderr"]).splitlines()), got["out"][-500:])
                if row["added"] is None:
                    self.assertNotIn("Packages:", got["out"])
                else:   # and acknowledged only when both list files were written
                    reply = json.loads(got["out"])
                    self.assertEqual((reply["packages"]["added"], reply["acknowledged"]),
                                     (row["added"], "--ack" in row["args"] and row["code"] == 0))
                self.assertEqual(got["files"], row["files"])
                if row["code"] != 0 or "--ack" not in row["args"]:   # nothing stored: the old bytes, or still none
                    self.assertEqual(got["after"], got["before"])
                logged = iter(got["log"])   # in this order, other lines between them
                self.assertEqual([line for line in map(fill, row["log"]) if line not in logged], [], got["log"][-8:])


if __name__ == "__main__":
    unittest.main()

#!/usr/bin/env python3
"""Fault injection: swinv and the built libsoftware.so.0 under a failing package manager, a full or read-only data
folder, a low descriptor limit and cut list files. Each case runs in a private mount namespace (unshare -m, root only),
and is judged by its exit status, what it printed, the stored baseline's bytes, the data folder's files and the
component's log. Environment as for swinv_e2e.py."""
import json, os, shutil, subprocess, tempfile, unittest
from pathlib import Path

from swinv_e2e import PACKAGES, SWINV, SwinvCase, records

DPKG_LIST = "dpkg-query --show --showformat '${Package}\\n'"
NO_INVENTORY = "swinv: the component sent no inventory (Execute returned 0); its log says: "
# Inside the namespace: the Debian marker files as a case wants them, on an overlay of /etc.
MARKERS = {"debian": "touch /etc/debian_version", "none": "rm -f /etc/debian_version /etc/debian-release"}
FULL_DATA = "mount -t tmpfs -o size=64k tmpfs home/data"
FILL = "dd if=/dev/zero of=home/data/filler bs=4k 2>/dev/null || true"
READ_ONLY = "mount --bind home/data home/data && mount -o remount,bind,ro home/data"
CUT = "head -c $(($(stat -c %s full.bin) * {tenths} / 10)) full.bin > home/data/SWPackage.bin"
NOT_STORED = "swinv: the baseline could not be stored: {data}SWList.bin: {why}; {data}SWPackage.bin: {why}; nothing was stored\n"
ABORTED = "arcobj.cpp(925): assertion failed\n"
CHANGED = PACKAGES[:2] + [("curl", "7.88.1-10", "URL tool", "Debian")]
CHANGED_RECORDS = records(CHANGED)   # bash, curl, gcc-12


def case(name, args=("run",), fault="", limit="", env=None, markers="debian", data="", baseline=True, config="",
         code=0, stderr="", added=None, log=("Check Files: /usr/dra/",), files=("SWList.bin", "SWPackage.bin")):
    """One row: the fault (shell, after the baseline run; `limit` in swinv's own shell), its environment, swinv's
    arguments, and what must follow: exit status, standard error ({data}: the data folder), the packages added (None:
    no reply printed), the log's last lines, and the files in data/ besides the configuration and log. The baseline
    keeps its bytes unless a run is stored."""
    return dict(name=name, args=list(args), fault=fault, limit=limit, env=env or {}, markers=markers, data=data,
                baseline=baseline, config=config, code=code, stderr=stderr, added=added, log=list(log),
                files=sorted(files))


CASES = [
    case("list exits 2", fault="", env=dict(FAKE_PM_FAULT="list-exit"), code=1,
         stderr=NO_INVENTORY + "Package list failed: exit status 2: %s; Scan Packages failed\n" % DPKG_LIST,
         log=["Package list failed: exit status 2: " + DPKG_LIST, "Scan Packages failed"]),
    case("list exits 2, full inventory", args=("run", "--full", "--ack"), env=dict(FAKE_PM_FAULT="list-exit"), code=1,
         stderr=NO_INVENTORY + "Package list failed: exit status 2: %s; Scan Packages failed\n" % DPKG_LIST,
         log=["Package list failed: exit status 2: " + DPKG_LIST, "Scan Packages failed"]),
    case("list killed after its first line", env=dict(FAKE_PM_FAULT="list-kill"), code=1,
         stderr=NO_INVENTORY + "Package list failed: exit status 137 (killed by signal 9, Killed): %s; Scan Packages "
         "failed\n" % DPKG_LIST, log=["Package list failed: exit status 137 (killed by signal 9, Killed): " + DPKG_LIST, "Scan Packages failed"]),
    case("dpkg-query missing on a Debian machine", env=dict(PATH="{tmp}/empty"), code=1,
         stderr=NO_INVENTORY + "Package list failed: exit status 127 (command not found): %s; Scan Packages failed\n"
         % DPKG_LIST, log=["Package list failed: exit status 127 (command not found): " + DPKG_LIST,
                           "Scan Packages failed"]),
    case("no package manager at all", args=("run", "--json"), env=dict(PATH="{tmp}/empty"), markers="none",
         baseline=False, added=[], files=(), log=["Scan Packages", "No package manager found: no Debian marker file and "
                                                  "no rpm on the search path", "Check Files: /usr/dra/"]),
    case("batch call fails", args=("run", "--json"), config="BatchQuery=1\n", env=dict(FAKE_PM_FAULT="batch-fail"),
         baseline=False, added=records(CHANGED), files=(),
         log=["Scan Packages", "Batch query not used: the batch command failed; querying each package"]),
    case("data folder full at DataSent", args=("run", "--ack", "--json"), data=FULL_DATA, fault=FILL, code=1, added=[CHANGED_RECORDS[1]],
         stderr=NOT_STORED.format(data="{data}", why="No space left on device"), files=("SWList.bin", "SWPackage.bin", "filler"),
         log=["Writing to file [{data}SWPackage.bin]", "Writing to file [{data}SWPackage.bin] failed: No space left on device"]),
    case("data folder full at DataSent, no baseline", args=("run", "--ack", "--json"), data=FULL_DATA, fault=FILL, baseline=False,
         code=1, added=CHANGED_RECORDS, stderr=NOT_STORED.format(data="{data}", why="No space left on device"), files=("filler",),
         log=["Writing to file [{data}SWPackage.bin]", "Writing to file [{data}SWPackage.bin] failed: No space left on device"]),
    case("data folder read-only", args=("run", "--ack", "--json"), fault=READ_ONLY, code=1, added=[CHANGED_RECORDS[1]],
         stderr=NOT_STORED.format(data="{data}", why="Read-only file system"),
         log=["Writing to file [{data}SWPackage.bin]", "Writing to file [{data}SWPackage.bin] failed: Read-only file system"]),
    case("descriptor limit too low for popen", args=("run", "--ack"), limit="ulimit -n 4", code=1,
         stderr=NO_INVENTORY + "Package list failed: not started (Too many open files): %s; Scan Packages failed\n"
         % DPKG_LIST, log=["Package list failed: not started (Too many open files): " + DPKG_LIST, "Scan Packages failed"]),
] + [
    # A stored list cut short is no baseline: everything counts as added again, unless the cut falls inside a string,
    # where the archive ends the process by design (code None: either).
    case("package list cut at %d tenths" % tenths, args=("run", "--json"), fault=CUT.format(tenths=tenths), code=None,
         added=records(CHANGED))
    for tenths in range(10)
]


@unittest.skipUnless(os.geteuid() == 0 or os.environ.get("CI") == "true", "needs root for private mount namespaces")
class FaultTest(SwinvCase):
    def run_case(self, row):
        """Runs one row in a fresh folder inside a private mount namespace; returns what came out."""
        self.write_db(PACKAGES)
        tmp = self.enterContext(tempfile.TemporaryDirectory(prefix="swinv-fault-"))
        home, data = tmp + "/home/", tmp + "/home/data/"
        os.makedirs(data)
        os.mkdir(tmp + "/empty")
        env = dict(self.env, **{k: v.format(tmp=tmp) for k, v in row["env"].items()})
        script = "\n".join([
            "set -e", "cd \"$T\"", "mkdir -p scratch && mount -t tmpfs tmpfs scratch && mkdir scratch/u scratch/w",
            "mount -t overlay overlay -o lowerdir=/etc,upperdir=scratch/u,workdir=scratch/w /etc",
            MARKERS[row["markers"]], row["data"],
            "ln -s \"$T/Software.log\" home/data/Software.log",
            "printf 'Logging=1\\n%s' \"$CONFIG\" > home/data/.Software_Inventory_Config",
            "[ -z \"$BASELINE\" ] || \"$SWINV\" --home home/ run --ack > /dev/null",
            "[ ! -f home/data/SWPackage.bin ] || cp home/data/SWPackage.bin full.bin",
            "printf '%s\\n' curl^7.88.1-10^URL\\ tool^Debian >> \"$FAKE_PM_DB\"; sed -i '/^zlib1g/d' \"$FAKE_PM_DB\"",
            ": > Software.log", row["fault"], "[ ! -f home/data/SWPackage.bin ] || cp home/data/SWPackage.bin before.bin",
            "set +e",
            "(eval \"$LIMIT\"; exec env $FAULT_ENV \"$SWINV\" --home \"$T/home/\" \"$@\") > out 2> err; echo $? > code",
            "ls -A home/data > files", "[ ! -f home/data/SWPackage.bin ] || cp home/data/SWPackage.bin after.bin"])
        fault_env = " ".join("%s=%s" % item for item in env.items() if item[0] in row["env"])
        subprocess.run(["unshare", "-m", "--propagation", "private", "sh", "-c", script, "fault"] + row["args"],
                       check=True, timeout=120, env=dict(self.env, T=tmp, SWINV=SWINV, CONFIG=row["config"],
                                                         BASELINE="1" if row["baseline"] else "", FAULT_ENV=fault_env,
                                                         LIMIT=row["limit"]))
        read = lambda name: Path(tmp, name).read_bytes() if Path(tmp, name).exists() else None
        return dict(tmp=tmp, data=data, code=int(read("code")), out=read("out").decode(), err=read("err").decode(),
                    files=sorted(set(read("files").decode().split()) - {".Software_Inventory_Config", "Software.log"}),
                    before=read("before.bin"), after=read("after.bin"),
                    log=[line[19:] for line in read("Software.log").decode().splitlines()])

    def test_every_fault_fails_as_a_failure(self):
        if not shutil.which("unshare"):
            self.fail("unshare (util-linux) is missing")
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

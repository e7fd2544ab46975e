#!/usr/bin/env python3
"""check_pip_install.py SOURCE VERSION: installs the zevreader package from a copy of SOURCE into a fresh virtual
environment of the system's python3, offline (no index; the system's setuptools builds it), then uses the installed
command and API as a server developer would. Exit 77 when the system's python3 lacks venv or setuptools."""
import json, os, shutil, subprocess, sys, tempfile

SOURCE, VERSION = sys.argv[1:3]
PYTHON = "/usr/bin/python3" if os.path.exists("/usr/bin/python3") else sys.executable
# A reply as the component lays it out: scan time; software add, delete, change, empty maps, flag; package maps, flag.
BLOCK = [{"type": 4, "value": 2}, {"type": 4, "value": 0}, {"type": 11, "value": {"length": 2, "hex": "0000"}}]
REPLY = {"id": 0, "hidden": 7, "elements": [{"type": 10, "value": "01 Jan 2025 12:00:00"}] + BLOCK * 4
         + [{"type": 3, "value": 1}] + BLOCK * 3 + [{"type": 3, "value": 0}]}
USE_API = """import json, sys, zevreader
reply = zevreader.decode_reply(zevreader.encode_message(json.loads(sys.argv[1])))
print(json.dumps([zevreader.__file__, reply["scan_time"], reply["software"]["full"], reply["packages"]["add"]]))
"""


def run(*argv, **options):
    done = subprocess.run(argv, stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True, **options)
    if done.returncode != 0:
        sys.exit("%s failed (%d):\n%s" % (" ".join(argv), done.returncode, done.stdout))
    return done.stdout


def main():
    if subprocess.run([PYTHON, "-c", "import ensurepip, venv, setuptools, wheel"], stderr=subprocess.DEVNULL).returncode:
        print("%s lacks venv, setuptools or wheel (python3-venv, python3-setuptools, python3-wheel)" % PYTHON)
        return 77
    env = {k: v for k, v in os.environ.items() if not k.startswith(("PYTHON", "PIP_"))}
    env.update(PIP_DISABLE_PIP_VERSION_CHECK="1", PIP_NO_INDEX="1")
    with tempfile.TemporaryDirectory(prefix="zevreader-pip-") as tmp:
        # pip builds in the source folder: a copy keeps the worktree clean.
        source = shutil.copytree(SOURCE, os.path.join(tmp, "src"),
                                 ignore=shutil.ignore_patterns("__pycache__", "build", "*.egg-info"))
        venv, reply = os.path.join(tmp, "venv"), os.path.join(tmp, "reply.bin")
        run(PYTHON, "-m", "venv", "--system-site-packages", venv, env=env)
        run(venv + "/bin/pip", "install", "--no-index", "--no-build-isolation", "--no-cache-dir", source, env=env)
        command = venv + "/bin/zevreader"
        problems = []
        if run(command, "--version", env=env).strip() != "zevreader " + VERSION:
            problems.append("version: %r, expected %r" % (run(command, "--version", env=env), VERSION))

        where, scan_time, full, added = json.loads(run(venv + "/bin/python", "-c", USE_API, json.dumps(REPLY), env=env))
        if not where.startswith(venv) or (scan_time, full, added) != ("01 Jan 2025 12:00:00", 1, {"count": 0, "entries": []}):
            problems.append("API: %r" % [where, scan_time, full, added])
        run(command, "encode-message", "-", "-o", reply, env=env, input=json.dumps(REPLY))
        decoded = json.loads(run(command, "reply", reply, env=env))
        if [decoded["software"]["full"], decoded["packages"]["full"], decoded["packages"]["change"]["count"]] != [1, 0, 0]:
            problems.append("reply command: %r" % decoded)
        with open(os.path.join(tmp, "paths.bin"), "wb") as f:
            f.write(b"\x02\x00\x04/opt\x04/srv")
        if json.loads(run(command, "strings", f.name, env=env)) != ["/opt", "/srv"]:
            problems.append("strings command")
        if "string count: 2" not in run(command, "strings", "--dump", f.name, env=env):
            problems.append("strings --dump")
        files = run(venv + "/bin/pip", "show", "--files", "zevreader", env=env)
        if "test" in files or "zevreader/cli.py" not in files:
            problems.append("installed files:\n" + files)
    print("\n".join(problems) or "zevreader %s installs offline and works from the virtual environment" % VERSION)
    return 1 if problems else 0


if __name__ == "__main__":
    sys.exit(main())

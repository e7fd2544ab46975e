"""The reader on hand-built archive bytes no C++ writer produces (back references, big tags, bad tags, truncations), their
annotated dumps; and (PipInstall, with ZEVREADER_VERSION set) an offline pip install as a server developer makes it."""
import os, shutil, struct, subprocess, sys, tempfile, unittest, zlib
from pathlib import Path

import zevreader as zr


def s(text):
    return bytes([len(text)]) + text.encode("latin-1")


PACKAGE = s("p") + s("1.0") + s("v") + s("") + struct.pack("<I", 7) + s("") + s("d")
NEW_CLASS = struct.pack("<HHH", 0xFFFF, 2, 22) + b"CSoftwarePackageObject"   # index 1
MAP = (struct.pack("<H", 4) + s("a") + NEW_CLASS + PACKAGE + s("b") + struct.pack("<H", 0x8001) + PACKAGE
       + s("c") + struct.pack("<HI", 0x7FFF, 2) + s("") + struct.pack("<H", 0))


def block(body, inflated=0):
    """A map's three reply elements: its length, the block header (the zlib length, 0 = raw) and the block."""
    return [{"type": 4, "value": inflated or len(body)}, {"type": 4, "value": len(body) if inflated else 0},
            {"type": 11, "value": {"length": len(body), "hex": body.hex()}}]


def reply(software_add, package_add, host=()):
    """A reply's message: scan time; software add, delete, change and empty maps, flag; package maps, flag."""
    return {"id": 9, "hidden": 7, "elements": list(host) + [{"type": 10, "value": "now"}] + software_add
            + block(b"\0\0") * 3 + [{"type": 3, "value": 1}] + package_add + block(b"\0\0") * 2 + [{"type": 3, "value": 0}]}


def dumped(text):
    """The bytes and the labels of a dump's lines."""
    lines = text.splitlines()
    return bytes.fromhex("".join(line[6:29] for line in lines)), [line[31:] for line in lines if line[31:]]


class MapStreams(unittest.TestCase):
    def test_tags_back_references_and_rejections(self):
        data, entries = MAP, zr.decode_map(MAP)["entries"]
        self.assertEqual([(e["key"], e["class"]) for e in entries],
                         [(k, "CSoftwarePackageObject") for k in "abc"] + [("c", None)])
        self.assertEqual((entries[2], entries[1]["fields"]["m_nFlags"]), (dict(entries[0], key="c", raw_key="c"), 7))
        bad_tags = [data[:-2] + struct.pack("<H", tag) for tag in (0x0001, 0x0005, 0x8002)]
        for bad in bad_tags + [data + b"\0"] + [data[:n] for n in range(len(data))]:   # every truncation
            with self.assertRaises(zr.FormatError, msg=bad.hex()):
                zr.decode_map(bad)


class Dumps(unittest.TestCase):
    def test_every_byte_labelled_tags_prefixes_and_reply_places(self):
        raw, labels = dumped(zr.dump("map", MAP))
        self.assertEqual(raw, MAP)
        self.assertEqual([label for label in labels if label.startswith("object tag")],
                         ["object tag: new object of a new class", "object tag: new object of class 1",
                          "object tag: 0x7FFF, a 32-bit tag follows", "object tag: object 2 again", "object tag: null object"])
        self.assertIn('key: "" (empty)', labels)
        paths = struct.pack("<H", 1) + b"\xff" + struct.pack("<H", 300) + b"/\xe9" * 150
        raw, labels = dumped(zr.dump("strings", paths))
        self.assertEqual((raw, labels[:3]), (paths, ["string count: 1", "string length: 0xFF, a 16-bit length follows",
                                                     "string length: 300"]))
        self.assertTrue(labels[3].startswith('string: "/\\xe9/'), labels[3])

        message = zr.encode_message(reply(block(MAP), block(zlib.compress(MAP, 9), len(MAP)), [{"type": 5, "value": -1}]))
        raw, labels = dumped(zr.dump("reply", message, skip=1))
        self.assertEqual(raw, message)
        self.assertEqual([label for label in labels if label.startswith("[")][:2],   # the places: docs/formats.md
                         ["[0] int: an element of the host", "[1] string: scan time"])
        self.assertIn("  object tag: object 2 again", labels)   # the raw block read field by field
        with self.assertRaises(zr.FormatError):
            zr.dump("reply", message)   # without the skip, the host's element is where the scan time belongs


@unittest.skipUnless(os.environ.get("ZEVREADER_VERSION"), "ZEVREADER_VERSION is not set")
class PipInstall(unittest.TestCase):
    """Installed offline (no index; the system's setuptools builds it) into a fresh venv; the subcommands at work are
    swinv_e2e's and the package check's."""
    def run_ok(self, *argv):
        done = subprocess.run(argv, stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True, env=self.env)
        self.assertEqual(done.returncode, 0, "%s:\n%s" % (" ".join(argv), done.stdout))
        return done.stdout

    def test_installs_offline_and_works_from_the_virtual_environment(self):
        python = "/usr/bin/python3" if os.path.exists("/usr/bin/python3") else sys.executable
        if subprocess.run([python, "-c", "import ensurepip, venv, setuptools, wheel"], stderr=subprocess.DEVNULL).returncode:
            self.skipTest("%s lacks venv, setuptools or wheel (python3-venv, python3-setuptools, python3-wheel)" % python)
        self.env = dict({k: v for k, v in os.environ.items() if not k.startswith(("PYTHON", "PIP_"))},
                        PIP_DISABLE_PIP_VERSION_CHECK="1", PIP_NO_INDEX="1")
        tmp = self.enterContext(tempfile.TemporaryDirectory(prefix="zevreader-pip-"))
        # pip builds in the source folder: a copy keeps the worktree clean.
        source = shutil.copytree(os.path.join(os.path.dirname(zr.__file__), ".."), tmp + "/src",
                                 ignore=shutil.ignore_patterns("__pycache__", "build", "*.egg-info"))
        venv = tmp + "/venv"
        Path(tmp, "map.bin").write_bytes(MAP)
        self.run_ok(python, "-m", "venv", "--system-site-packages", venv)
        self.run_ok(venv + "/bin/pip", "install", "--no-index", "--no-build-isolation", "--no-cache-dir", source)
        self.assertEqual(self.run_ok(venv + "/bin/zevreader", "--version"), "zevreader %s\n" % os.environ["ZEVREADER_VERSION"])
        self.assertIn('"count": 4', self.run_ok(venv + "/bin/zevreader", "map", tmp + "/map.bin"))
        files = self.run_ok(venv + "/bin/pip", "show", "--files", "zevreader")
        self.assertTrue("test" not in files and "zevreader/cli.py" in files, files)


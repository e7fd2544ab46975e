"""Format tests of the independent reader on hand-built bytes: object tags and
the shared index space, record schemas, the empty-key rule, string prefixes,
messages, replies, and rejection of truncated or inconsistent input."""

import json
import os
import struct
import subprocess
import sys
import tempfile
import unittest
import zlib

import zevreader as zr

HERE = os.path.dirname(os.path.abspath(__file__))


def u16(v):
    return struct.pack("<H", v)


def u32(v):
    return struct.pack("<I", v)


def s(text):
    """Archived string with a one-byte prefix."""
    raw = text.encode("latin-1")
    assert len(raw) < 255
    return bytes([len(raw)]) + raw


def new_class(name, schema):
    return u16(0xFFFF) + u16(schema) + u16(len(name)) + name.encode()


def package(name, flags=128, description="desc"):
    body = s(name) + s("1.0") + s("vendor") + s("") + u32(flags) + s("")
    return body + s(description)


class MapStreams(unittest.TestCase):
    def test_empty_map_is_two_zero_bytes(self):
        self.assertEqual(zr.decode_map(b"\0\0"), {"count": 0, "entries": []})

    def test_tags_share_one_index_space_and_back_references_resolve(self):
        # class CSoftwarePackageObject = 1, first object = 2, second object = 3 (tag 0x8001)
        data = (u16(4)
                + s("a") + new_class("CSoftwarePackageObject", 2) + package("pa")
                + s("b") + u16(0x8001) + package("pb", flags=7)
                + s("c") + u16(0x0002)                         # the first object again
                + s("d") + u16(0x0000))                        # null value
        result = zr.decode_map(data)
        self.assertEqual(result["count"], 4)
        a, b, c, d = result["entries"]
        self.assertEqual(a["class"], "CSoftwarePackageObject")
        self.assertEqual(a["schema"], 2)
        self.assertEqual(a["fields"], {"m_strName": "pa", "m_strVersion": "1.0", "m_strVendor": "vendor",
                                       "m_strExtra1": "", "m_nFlags": 128, "m_strExtra2": "",
                                       "m_strDescription": "desc"})
        self.assertEqual(b["fields"]["m_nFlags"], 7)
        self.assertEqual(c["fields"], a["fields"])
        self.assertIsNone(d["class"])

    def test_big_tags_and_bad_indices(self):
        # 0x7FFF then a 32-bit class tag: class index 1 written the long way
        data = (u16(2) + s("a") + new_class("CSoftwarePackageObject", 2) + package("pa")
                + s("b") + u16(0x7FFF) + u32(0x80000001) + package("pb"))
        self.assertEqual(zr.decode_map(data)["entries"][1]["fields"]["m_strName"], "pb")
        for bad_tag in (u16(0x0005), u16(0x8002), u16(0x0001), u16(0x7FFF) + u32(9)):
            with self.assertRaises(zr.FormatError):
                zr.decode_map(u16(2) + s("a") + new_class("CSoftwarePackageObject", 2) + package("pa")
                              + s("b") + bad_tag + package("pb"))

    def test_schema_selects_the_stored_fields(self):
        old_package = s("n") + s("v") + s("c") + s("") + u32(128) + s("")
        data = u16(1) + s("k") + new_class("CSoftwarePackageObject", 1) + old_package
        entry = zr.decode_map(data)["entries"][0]
        self.assertEqual(entry["schema"], 1)
        self.assertNotIn("m_strDescription", entry["fields"])

        strings7 = b"".join(s("f%d" % i) for i in range(7))
        for schema, extra, fields in ((1, b"", 8), (2, u32(6), 9), (3, u32(6) + s("pkg"), 10)):
            data = (u16(2) + s("x") + new_class("CSoftwareObject", schema) + strings7 + struct.pack("<i", -5) + extra
                    + s("y") + u16(0x8001) + strings7 + struct.pack("<i", -5) + extra)
            entries = zr.decode_map(data)["entries"]
            self.assertEqual([e["schema"] for e in entries], [schema, schema])   # remembered for 0x8001
            self.assertEqual(len(entries[1]["fields"]), fields)
            self.assertEqual(entries[0]["fields"]["m_nInfo5"], -5)

    def test_empty_key_reuses_the_previous_key_and_nul_cuts(self):
        data = (u16(3) + s("") + new_class("CListObject", 1)
                + s("first") + u16(0x8001) + s("") + u16(0x8001))
        keys = [(e["key"], e["raw_key"]) for e in zr.decode_map(data)["entries"]]
        self.assertEqual(keys, [("", ""), ("first", "first"), ("first", "")])
        data = u16(1) + s("ab\0cd") + u16(0)
        entry = zr.decode_map(data)["entries"][0]
        self.assertEqual((entry["key"], entry["raw_key"]), ("ab", "ab\0cd"))

    def test_nested_maps_and_unknown_classes(self):
        inner = u16(1) + s("k") + new_class("CListObject", 1)
        data = u16(1) + s("outer") + new_class("CInvMap", 1) + inner
        entry = zr.decode_map(data)["entries"][0]
        self.assertEqual(entry["class"], "CInvMap")
        self.assertEqual(entry["map"]["entries"][0]["class"], "CListObject")
        for name in ("CPtrArray", "CSoftwareobject", "C" * 64):
            with self.assertRaises(zr.FormatError):
                zr.decode_map(u16(1) + s("k") + new_class(name, 1))

    def test_every_truncation_and_trailing_bytes_are_rejected(self):
        data = u16(2) + s("a") + new_class("CSoftwarePackageObject", 2) + package("pa") + s("b") + u16(0x0002)
        zr.decode_map(data)
        for n in range(len(data)):
            with self.assertRaises(zr.FormatError, msg="prefix %d" % n):
                zr.decode_map(data[:n])
        with self.assertRaises(zr.FormatError):
            zr.decode_map(data + b"\0")


class Strings(unittest.TestCase):
    def test_prefix_forms_and_string_arrays(self):
        for n, prefix in ((254, b"\xfe"), (255, b"\xff\xff\x00"), (0xFFFD, b"\xff\xfd\xff"),
                          (0xFFFE, b"\xff\xff\xff\xfe\xff\x00\x00")):
            raw = b"q" * n
            self.assertEqual(zr.encode_string(raw), prefix + raw)
            self.assertEqual(zr.Stream(prefix + raw).string(), raw)
        self.assertEqual(zr.Stream(b"\xff\xfe\xff\x02a\0b\0").string(), b"a\0b\0")   # wide: 2 bytes a unit
        self.assertEqual(zr.decode_strings(u16(3) + s("/srv") + s("") + s("/opt")), ["/srv", "", "/opt"])
        self.assertEqual(zr.decode_strings(u16(0xFFFF) + u32(1) + s("x")), ["x"])


def message(elements, hidden=0, msg_id=7):
    return struct.pack("<iiI", msg_id, len(elements), hidden) + b"".join(elements)


def uint_element(v):
    return b"\x04" + u32(v) + b"\0" * 4


def buffer_element(raw):
    return b"\x0b" + u32(len(raw)) + raw


class Messages(unittest.TestCase):
    def test_golden_elements_decode_and_encode_back(self):
        wire = message([b"\x00\x41" + b"\0" * 7, b"\x03\xfe\xff" + b"\0" * 6, b"\x08\x00\x00\xc0\x3f" + b"\0" * 4,
                        b"\x0c" + bytes(range(1, 9)), b"\x0a\x03abc", buffer_element(b"\x00\xff"),
                        b"\x07" + bytes(range(8)), b"\xfe" + bytes(range(8))], hidden=1)
        decoded = zr.decode_message(wire)
        self.assertEqual((decoded["id"], decoded["count"], decoded["hidden"]), (7, 8, 1))
        values = [e["value"] for e in decoded["elements"]]
        self.assertEqual(values[:5], [0x41, -2, 1.5, 0x0807060504030201, "abc"])
        self.assertEqual(values[5], {"length": 2, "hex": "00ff"})
        self.assertEqual(values[6], 0x03020100)   # reserved code: a 32-bit value
        self.assertIsNone(values[7])
        self.assertEqual(decoded["elements"][7]["raw"], "0001020304050607")
        # Values re-encode with zero padding; codes without a value go back as stored.
        self.assertNotEqual(zr.encode_message(decoded), wire)   # code 7 had non-zero padding
        decoded["elements"][6]["value"] = None
        self.assertEqual(zr.encode_message(decoded), wire)
        self.assertEqual(zr.encode_message(zr.decode_message(message([]))), message([]))
        self.assertEqual(len(message([], msg_id=7)), 12)

    def test_truncated_messages_are_rejected(self):
        wire = message([b"\x0a\x03abc", buffer_element(b"xyz"), uint_element(1)])
        for n in range(len(wire)):
            with self.assertRaises(zr.FormatError):
                zr.decode_message(wire[:n])


def map_blob(raw_map, compress):
    if compress:
        body = zlib.compress(raw_map, 9)
        return [uint_element(len(raw_map)), uint_element(len(body)), buffer_element(body)]
    return [uint_element(len(raw_map)), uint_element(0), buffer_element(raw_map)]


class Replies(unittest.TestCase):
    def build(self, host=(), add=None, packages_length=None):
        add = add or (u16(1) + s("k") + new_class("CSoftwarePackageObject", 2) + package("p"))
        empty = u16(0)
        elements = list(host) + [b"\x0a" + s("21 Nov 2025 11:00:00")]
        elements += map_blob(add, True) + map_blob(empty, False) + map_blob(empty, False) + map_blob(empty, False)
        elements += [b"\x03\x01\x00" + b"\0" * 6]
        for _ in range(3):
            elements += map_blob(empty, False)
        if packages_length is not None:
            elements[-3] = uint_element(packages_length)
        elements += [b"\x03\x00\x00" + b"\0" * 6]
        return message(elements, hidden=7)

    def test_layout_with_skipped_host_elements(self):
        reply = zr.decode_reply(self.build(host=[uint_element(1), b"\x0a\x01h"]), skip=2)
        self.assertEqual(reply["scan_time"], "21 Nov 2025 11:00:00")
        self.assertEqual(reply["software"]["add"]["entries"][0]["fields"]["m_strName"], "p")
        self.assertEqual(reply["software"]["empty"], {"count": 0, "entries": []})
        self.assertEqual((reply["software"]["full"], reply["packages"]["full"]), (1, 0))
        self.assertEqual(sorted(reply["packages"]), ["add", "change", "delete", "full"])

    def test_inconsistent_replies_are_rejected(self):
        with self.assertRaises(zr.FormatError):
            zr.decode_reply(self.build(host=[uint_element(1)]))          # host element not skipped
        with self.assertRaises(zr.FormatError):
            zr.decode_reply(self.build(packages_length=3))              # length element disagrees
        with self.assertRaises(zr.FormatError):
            zr.decode_reply(self.build(add=u16(1) + s("k")))            # blob ends inside its map


class CommandLine(unittest.TestCase):
    def run_reader(self, *args):
        return subprocess.run([sys.executable, os.path.join(HERE, "zevreader.py")] + list(args),
                              capture_output=True, text=True)

    def test_json_out_and_one_line_errors(self):
        with tempfile.TemporaryDirectory() as tmp:
            good = os.path.join(tmp, "m.bin")
            with open(good, "wb") as f:
                f.write(message([b"\x0a\x02hi"]))
            run = self.run_reader("message", good)
            self.assertEqual(run.returncode, 0)
            decoded = json.loads(run.stdout)
            self.assertEqual(decoded["elements"][0]["value"], "hi")

            json_path = os.path.join(tmp, "m.json")
            with open(json_path, "w") as f:
                f.write(run.stdout)
            again = os.path.join(tmp, "again.bin")
            self.assertEqual(self.run_reader("encode-message", json_path, "-o", again).returncode, 0)
            with open(again, "rb") as f, open(good, "rb") as g:
                self.assertEqual(f.read(), g.read())

            bad = os.path.join(tmp, "bad.bin")
            with open(bad, "wb") as f:
                f.write(b"\x01\x00")
            for command in ("map", "strings", "message", "reply"):
                run = self.run_reader(command, bad)
                self.assertEqual(run.returncode, 1, command)
                self.assertEqual(run.stdout, "")
                self.assertEqual(len(run.stderr.strip().splitlines()), 1, run.stderr)


if __name__ == "__main__":
    unittest.main()

"""Decoders of the component's byte formats: archive streams (list files, "swsearch.bin"),
message wire buffers and inventory replies, into plain dictionaries; and messages back to bytes.

Strings decode as latin-1, so every byte survives as the character of the same value.
Malformed input raises FormatError. A Stream given a `trace` list also records each field
it reads as [offset, length, label], which the annotated dumps print.
"""

import struct
import zlib

# Element codes; scalar codes map to the struct format at the start of the 8-byte store
# (6 and 7 are reserved codes holding 32-bit values).
NDK_SHORT, NDK_UINT, NDK_STRING, NDK_BUFFER = 3, 4, 10, 11
SCALAR_FORMATS = {0: "<B", 1: "<b", 2: "<H", 3: "<h", 4: "<I", 5: "<i", 6: "<I", 7: "<I", 8: "<f", 9: "<d", 12: "<Q"}
TYPE_NAMES = ["uchar", "char", "ushort", "short", "uint", "int", "reserved6", "reserved7", "float", "double",
              "string", "buffer", "uint64"]

# Registered classes: name -> current schema (0x80000000 marks a versionable class).
VERSIONABLE = 0x80000000
KNOWN_CLASSES = {"CObList": 0, "CStringArray": 0, "CMapStringToOb": 0, "CInvMap": 1, "CListObject": 1,
                 "CSoftwareObject": VERSIONABLE | 3, "CSoftwarePackageObject": VERSIONABLE | 2, "CNDKMessage": 1}

NEW_CLASS_TAG, BIG_OBJECT_TAG, BIG_CLASS_TAG, MAX_CLASS_NAME = 0xFFFF, 0x7FFF, 0x80000000, 64


class FormatError(Exception): """The bytes do not follow the format."""


def latin1(raw):
    return raw.decode("latin-1")


def c_text(raw):   # what the C++ loader keeps of a stored string: the bytes before the first NUL
    return raw.split(b"\0", 1)[0]


def quoted(raw):
    """Bytes as a quoted text for dumps: printable ASCII as is, everything else as \\xNN."""
    return '"%s"' % "".join(chr(b) if 0x20 <= b < 0x7F else "\\x%02x" % b for b in raw)


def type_name(code):
    return TYPE_NAMES[code] if 0 <= code < len(TYPE_NAMES) else "unknown"


class Stream:
    """Little-endian reads over a byte string with strict bounds."""

    def __init__(self, data, trace=None):
        self.data, self.pos, self.trace = bytes(data), 0, trace

    def take(self, n, what="data"):
        if n < 0 or len(self.data) - self.pos < n:
            raise FormatError("%s: need %d bytes at offset %d, %d left" % (what, n, self.pos, len(self.data) - self.pos))
        self.pos += n
        if self.trace is not None:
            self.trace.append([self.pos - n, n, what])
        return self.data[self.pos - n:self.pos]

    def note(self, label):
        """Relabels the field read last, for dumps."""
        if self.trace:
            self.trace[-1][2] = label

    def unpack(self, fmt, what):
        value = struct.unpack(fmt, self.take(struct.calcsize(fmt), what))[0]
        self.note("%s: %s" % (what, value))
        return value

    def u8(self, what="byte"): return self.unpack("<B", what)
    def u16(self, what="16-bit value"): return self.unpack("<H", what)
    def u32(self, what="32-bit value"): return self.unpack("<I", what)
    def i32(self, what="32-bit value"): return self.unpack("<i", what)

    def count(self, what="count"):
        value = self.u16(what)
        if value != 0xFFFF:
            return value
        self.note(what + ": 0xFFFF, a 32-bit count follows")
        return self.u32(what)

    def string(self, what="string"):
        """Raw bytes of an archived string (a wide string gives its 2-byte units)."""
        size = what + " length"
        unit, length = 1, self.u8(size)
        if length == 0xFF:
            self.note(size + ": 0xFF, a 16-bit length follows")
            length = self.u16(size)
            if length == 0xFFFE:   # wide marker: the length again, counting 2-byte units
                self.note(size + ": 0xFFFE, a wide string: its length in 2-byte units follows")
                unit, length = 2, self.u8(size)
                if length == 0xFF:
                    length = self.u16(size)
            if length == 0xFFFF:
                self.note(size + ": 0xFFFF, a 32-bit length follows")
                length = self.u32(size)
        if length == 0:
            self.note('%s: "" (empty)' % what)
            return b""
        raw = self.take(length * unit, what)
        self.note("%s: %s" % (what, quoted(raw)))
        return raw

    def expect_end(self, what):
        if self.pos != len(self.data):
            raise FormatError("%s: %d trailing bytes at offset %d" % (what, len(self.data) - self.pos, self.pos))


class ArchiveReader(Stream):
    """Object graph of one archive: classes and objects share one index space from 1."""

    def __init__(self, data, trace=None):
        super().__init__(data, trace)
        self.loaded = [None]          # index -> ("class", name) or ("object", dict)
        self.remembered_schema = {}   # versionable class -> schema found in the stream

    def read_class_record(self):
        schema, length = self.u16("class schema"), self.u16("class name length")
        if length >= MAX_CLASS_NAME:
            raise FormatError("class name of %d bytes" % length)
        name = latin1(self.take(length, "class name"))
        self.note("class name: %s" % quoted(name.encode("latin-1")))
        if name not in KNOWN_CLASSES:
            raise FormatError("unknown class %r" % name)
        return name, schema

    def read_object(self):
        """The object JSON, or None for the null reference."""
        tag_offset, tag = self.pos, self.u16("object tag")
        if tag == BIG_OBJECT_TAG:
            self.note("object tag: 0x7FFF, a 32-bit tag follows")
            tag32 = self.u32("object tag (32-bit)")
        else:
            tag32 = (tag & 0x7FFF) | ((tag & 0x8000) << 16)
        self.note("object tag: " + ("null object" if tag32 == 0 else "new object of a new class" if tag == NEW_CLASS_TAG
                                    else "new object of class %d" % (tag32 & ~BIG_CLASS_TAG) if tag32 & BIG_CLASS_TAG
                                    else "object %d again" % tag32))

        if not tag32 & BIG_CLASS_TAG:
            if tag32 >= len(self.loaded):
                raise FormatError("object index %d at offset %d not loaded yet" % (tag32, tag_offset))
            kind, value = self.loaded[tag32] if tag32 else ("object", None)
            if kind != "object":
                raise FormatError("index %d at offset %d is a class, not an object" % (tag32, tag_offset))
            return value

        if tag == NEW_CLASS_TAG:
            name, schema = self.read_class_record()
            current = KNOWN_CLASSES[name]
            if current & VERSIONABLE and schema != current & ~VERSIONABLE:
                self.remembered_schema[name] = schema
            self.loaded.append(("class", name))
        else:
            index = tag32 & ~BIG_CLASS_TAG
            if index >= len(self.loaded) or self.loaded[index][0] != "class":
                raise FormatError("class index %d at offset %d unknown" % (index, tag_offset))
            name = self.loaded[index][1]
            schema = self.remembered_schema.get(name, KNOWN_CLASSES[name] & ~VERSIONABLE)

        obj = {"class": name, "schema": schema, "fields": {}}
        self.loaded.append(("object", obj))
        self.read_body(obj)
        return obj

    def read_body(self, obj):
        name, schema, fields = obj["class"], obj["schema"], obj["fields"]

        def text(field):
            fields[field] = latin1(c_text(self.string(field)))

        if name == "CSoftwarePackageObject":
            for field in ("m_strName", "m_strVersion", "m_strVendor", "m_strExtra1"):
                text(field)
            fields["m_nFlags"] = self.u32("m_nFlags")
            text("m_strExtra2")
            if schema > 1:
                text("m_strDescription")
        elif name == "CSoftwareObject":
            for field in ("m_strVersion", "m_strDescription", "m_strCompanyName", "m_strInfo1", "m_strInfo2",
                          "m_strInfo3", "m_strInfo4"):
                text(field)
            fields["m_nInfo5"] = self.i32("m_nInfo5")
            if schema > 1:
                fields["m_nInfo6"] = self.u32("m_nInfo6")
            if schema > 2:
                text("m_strPackage")
        elif name in ("CInvMap", "CMapStringToOb"):
            obj["map"] = self.read_map()
        elif name == "CStringArray":
            obj["strings"] = self.read_strings()
        elif name == "CObList":
            obj["items"] = [self.read_object() for _ in range(self.count("list count"))]
        elif name == "CNDKMessage":
            obj["message"] = read_message_body(self)
        # CListObject stores nothing of its own.

    def read_map(self):
        """count, then key string and object reference per entry, in stream order."""
        count = self.count("entry count")
        entries = []
        key = b""   # one key variable for all pairs: an empty stored key reuses the previous one
        for _ in range(count):
            raw_key = self.string("key")
            if raw_key:
                key = c_text(raw_key)
            entries.append(dict({"key": latin1(key), "raw_key": latin1(raw_key)},
                                **(self.read_object() or {"class": None, "schema": None, "fields": None})))
        return {"count": count, "entries": entries}

    def read_strings(self):
        return [latin1(c_text(self.string("string"))) for _ in range(self.count("string count"))]


def decode_whole(data, read, what, trace=None):
    """read(stream) over all of `data`: trailing bytes are an error."""
    stream = ArchiveReader(data, trace)
    result = read(stream)
    stream.expect_end(what)
    return result


def decode_map(data, trace=None):
    """An archived map (a list file, or a reply's map block): {"count", "entries": [{"key", "class", ...}]}."""
    return decode_whole(data, ArchiveReader.read_map, "map stream", trace)


def decode_strings(data, trace=None):
    """An archived string array ("swsearch.bin"): the list of strings."""
    return decode_whole(data, ArchiveReader.read_strings, "string array stream", trace)


def read_message_body(stream):
    msg_id, count, hidden = stream.i32("message id"), stream.i32("element count"), stream.u32("hidden count")
    elements = []
    for index in range(max(count, 0)):
        code = stream.u8("element type")
        stream.note("[%d] %s" % (index, type_name(code)))
        element = {"type": code}
        if code == NDK_STRING:
            raw = stream.string("text")
            element["value"] = latin1(c_text(raw))
            if c_text(raw) != raw:
                element["stored"] = latin1(raw)
        elif code == NDK_BUFFER:
            length = stream.u32("length")
            raw = stream.take(length, "bytes")
            element["value"] = {"length": length, "hex": raw.hex()}
            stream.note("bytes: %s" % quoted(raw) if 0 < length <= 64 else "bytes")
        else:
            raw = stream.take(8, "value")
            fmt = SCALAR_FORMATS.get(code)
            element.update(value=struct.unpack_from(fmt, raw)[0] if fmt else None, raw=raw.hex())
            stream.note("value: %s" % element["value"] if fmt else "value bytes")
        elements.append(element)
    return {"id": msg_id, "count": count, "hidden": hidden, "elements": elements}


def decode_message(data, trace=None):
    """A message wire buffer: {"id", "count", "hidden", "elements": [{"type", "value", ...}]}."""
    return decode_whole(data, read_message_body, "message", trace)


def encode_string(raw):
    n = len(raw)
    return (struct.pack("<B", n) if n < 0xFF else struct.pack("<BH", 0xFF, n) if n < 0xFFFE
            else struct.pack("<BHI", 0xFF, 0xFFFF, n)) + raw


def encode_element(element):
    code = element["type"]
    out = struct.pack("<B", code)
    if code == NDK_STRING:
        return out + encode_string(element.get("stored", element["value"]).encode("latin-1"))
    if code == NDK_BUFFER:
        body = bytes.fromhex(element["value"]["hex"])
        return out + struct.pack("<I", len(body)) + body
    fmt = SCALAR_FORMATS.get(code)
    if fmt is None or element.get("value") is None:
        return out + bytes.fromhex(element["raw"])   # unknown codes travel as stored
    # Unused bytes of the 8-byte store go out as zeros.
    return out + struct.pack(fmt, element["value"]).ljust(8, b"\0")


def encode_message(message):
    """Wire bytes of a message given as decode_message returns it ("raw" is not needed)."""
    elements = message["elements"]
    header = struct.pack("<iiI", message["id"], message.get("count", len(elements)), message["hidden"])
    return header + b"".join(encode_element(e) for e in elements)


class ElementCursor:
    def __init__(self, elements, start):
        self.elements, self.index = elements, start

    def next(self, code, what):
        if self.index >= len(self.elements):
            raise FormatError("%s: reply ends at element %d" % (what, self.index))
        element = self.elements[self.index]
        if element["type"] != code:
            raise FormatError("%s: element %d has type %d, expected %d" % (what, self.index, element["type"], code))
        self.index += 1
        return element["value"]

    def blob_map(self, what):
        """uint length, then the block (uint c, buffer; zlib when c != 0) holding a map stream."""
        length = self.next(NDK_UINT, what + " length")
        header = self.next(NDK_UINT, what + " block header")
        body = bytes.fromhex(self.next(NDK_BUFFER, what + " block")["hex"])
        if header and header != len(body):
            raise FormatError("%s: block header %d, buffer of %d bytes" % (what, header, len(body)))
        try:
            body = zlib.decompress(body) if header else body
            if len(body) != length:
                raise FormatError("%d bytes, length element says %d" % (len(body), length))
            return decode_map(body)
        except (zlib.error, FormatError) as exc:
            raise FormatError("%s: %s" % (what, exc)) from None


def decode_reply(data, skip=0, trace=None):
    """An inventory reply (after `skip` leading elements of the host): the scan time, then for "software"
    and "packages" the decoded maps "add", "delete", "change" (and the always empty "empty" of software)
    and the "full" flag, 1 when no stored list was found."""
    elements = decode_message(data, trace)["elements"]
    if skip < 0 or skip > len(elements):
        raise FormatError("cannot skip %d of %d elements" % (skip, len(elements)))
    cur = ElementCursor(elements, skip)
    reply = {"scan_time": cur.next(NDK_STRING, "scan time")}
    for group, parts in (("software", ("add", "delete", "change", "empty")), ("packages", ("add", "delete", "change"))):
        reply[group] = {part: cur.blob_map(group + " " + part) for part in parts}
        reply[group]["full"] = cur.next(NDK_SHORT, group + " full flag")
    if cur.index != len(elements):
        raise FormatError("%d elements after the reply layout" % (len(elements) - cur.index))
    return reply

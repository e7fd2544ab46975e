"""Annotated hex dumps: every field of a file or message on its own lines, as offset, up to eight bytes
in hex and what the bytes mean. A reply's elements are named by their place in the reply, and a map
block stored raw is opened up in place; a zlib block stays one field."""

import zlib

from .formats import FormatError, decode_map, decode_message, decode_reply, decode_strings

BYTES_PER_LINE = 8

# The reply after the host's elements: the scan time, then per map its length, the block's hidden
# header and the block; a flag after the software maps and after the package maps.
REPLY_ROLES = ["scan time"]
for _group, _maps in (("software", ("add", "delete", "change", "empty")), ("packages", ("add", "delete", "change"))):
    for _map in _maps:
        REPLY_ROLES += ["%s %s: map length" % (_group, _map), "%s %s: block header (zlib length, 0 = raw)" % (_group, _map),
                        "%s %s: block" % (_group, _map)]
    REPLY_ROLES.append("%s flag: 1 = no stored list" % _group)


def lines(data, trace, indent=""):
    """The dump lines of `trace` ([offset, length, label] over `data`, in order, covering every byte)."""
    out, expected = [], 0
    for offset, length, label in trace:
        if offset != expected:
            raise FormatError("the fields leave bytes %d to %d unexplained" % (expected, offset))
        expected = offset + length
        for start in range(offset, offset + length, BYTES_PER_LINE):
            chunk = data[start:min(start + BYTES_PER_LINE, offset + length)]
            text = indent + label if start == offset else ""
            out.append(("%04x  %-23s  %s" % (start, chunk.hex(" "), text)).rstrip())
    if expected != len(data):
        raise FormatError("the fields leave bytes %d to %d unexplained" % (expected, len(data)))
    return out


def _reply_trace(data, skip):
    """The message trace with each element named, and raw map blocks read field by field in place."""
    trace = []
    decode_reply(data, skip, trace)
    out, role, header = [], None, 0
    for offset, length, label in trace:
        if label.startswith("["):
            place = int(label[1:label.index("]")]) - skip
            role = REPLY_ROLES[place] if 0 <= place < len(REPLY_ROLES) else "an element of the host"
            out.append([offset, length, "%s: %s" % (label, role)])
        elif role is None:   # the message header
            out.append([offset, length, label])
        elif role.endswith("block header (zlib length, 0 = raw)") and label.startswith("value: "):
            header = int(label[len("value: "):])
            out.append([offset, length, "  " + label])
        elif role.endswith(": block") and label.startswith("bytes"):
            block = data[offset:offset + length]
            if header:
                out.append([offset, length, "  zlib stream, inflates to the %d-byte map" % len(zlib.decompress(block))])
            else:
                inner = []
                decode_map(block, inner)
                out += [[offset + o, n, "  " + text] for o, n, text in inner]
        else:
            out.append([offset, length, "  " + label])
    return out


def dump(kind, data, skip=0):
    """The annotated dump of `data` read as `kind` ("map", "strings", "message" or "reply") as one text."""
    data = bytes(data)
    if kind == "reply":
        trace = _reply_trace(data, skip)
    else:
        trace = []
        {"map": decode_map, "strings": decode_strings, "message": decode_message}[kind](data, trace)
        if kind == "message":   # an element's value under its type line
            inside = False
            for field in trace:
                inside = inside or field[2].startswith("[")
                field[2] = field[2] if field[2].startswith("[") or not inside else "  " + field[2]
    return "\n".join(lines(data, trace)) + "\n"

#!/usr/bin/env python3
"""check_formats_doc.py GENERATOR DOC [--update]: runs GENERATOR to write the examples again and compares each
block of DOC that opens with ```zevdump KIND FILE against the annotated dump of FILE read as KIND (zevreader's
dump; KIND "text" is the file as it stands). Every example must have a block. --update rewrites the blocks."""
import difflib, os, re, subprocess, sys, tempfile, zlib

import zevreader

BLOCK = re.compile(r"^```zevdump (\w+) (\S+)\n(.*?)^```$", re.M | re.S)
PACKAGE_ADD_BLOCK = 16   # wire element: scan time, four software maps of three elements, a flag, then this map's third


def render(kind, path):
    with open(path, "rb") as f:
        data = f.read()
    return data.decode("latin-1") if kind == "text" else zevreader.dump(kind, data)


def main():
    generator, doc = sys.argv[1:3]
    update = sys.argv[3:] == ["--update"]
    with open(doc, encoding="utf-8") as f:
        text = f.read()
    with tempfile.TemporaryDirectory(prefix="formats-doc-") as out:
        subprocess.run([generator, out], check=True)
        problems, shown = [], set()

        def regenerate(match):
            kind, name, body = match.groups()
            shown.add(name)
            path = os.path.join(out, name)
            if not os.path.exists(path):
                problems.append("block %s %s: the generator writes no such example" % (kind, name))
                return match.group(0)
            fresh = render(kind, path)
            if fresh != body:
                problems.append("block %s %s differs from the example written now:\n%s" % (kind, name, "".join(
                    difflib.unified_diff(body.splitlines(True), fresh.splitlines(True), "document", "example", n=1))))
            return "```zevdump %s %s\n%s```" % (kind, name, fresh)

        text = BLOCK.sub(regenerate, text)
        problems += ["example %s has no block in the document" % name for name in sorted(set(os.listdir(out)) - shown)]
        # The document says the first reply's package add block is the stored package list, zlib-compressed.
        with open(os.path.join(out, "reply.bin"), "rb") as f, open(os.path.join(out, "SWPackage.bin"), "rb") as g:
            block = zevreader.decode_message(f.read())["elements"][PACKAGE_ADD_BLOCK]["value"]["hex"]
            if zlib.decompress(bytes.fromhex(block)) != g.read():
                problems.append("the reply's package add block does not inflate to SWPackage.bin")
    if update:
        with open(doc, "w", encoding="utf-8") as f:
            f.write(text)
        print("%s: %d blocks written" % (doc, len(shown)))
        return 0
    print("\n".join(problems) + "\nrerun with --update to write the new dumps into %s" % doc if problems
          else "%s: %d dumps match the examples" % (doc, len(shown)))
    return 1 if problems else 0


if __name__ == "__main__":
    sys.exit(main())

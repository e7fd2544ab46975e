#!/usr/bin/env python3
"""Checks the dynamic symbols of the built libsoftware.so.0: exactly the 16 entry
points are defined; only the C and C++ runtime, zlib and the three host symbols
stay undefined. Usage: check_symbols.py LIBRARY [--sanitized]."""
import re
import subprocess
import sys

ENTRY_POINTS = set("GetComponentApp DeleteComponentApp IsLoaded GetID GetName GetCommands Execute InitClient "
                   "SetConfig Unload GetClientFileList Install DataSent NeedsX SetXState HaltExecution".split())
HOST_SYMBOLS = {"_ZN3zev10Settings_tC1Ev", "_ZNK3zev10Settings_t11getHomePathB5cxx11Ev",
                "_Z16GetSimpleCommandPKcRNSt7__cxx1112basic_stringIcSt11char_traitsIcESaIcEEE"}
RUNTIME = re.compile(r"@(GLIBC|GLIBCXX|CXXABI|GCC|ZLIB)_[0-9.]+$|^(__gmon_start__|_ITM_\w+TMCloneTable|__cxa_finalize)$"
                     r"|^(compress\w*|uncompress2?|deflate\w*|inflate\w*|crc32\w*|adler32\w*|zlibVersion|zError)$")
SANITIZER = re.compile(r"^_*(asan|ubsan|tsan|lsan|sanitizer)_")


def dynamic(which, path):
    out = subprocess.run(["nm", "-D", which, path], check=True, capture_output=True, text=True).stdout
    return {line.split()[-1] for line in out.splitlines() if line.strip()}


def sanitizer_runtime(library):
    """The sanitizer runtimes' interceptors stand in for the C runtime, unversioned."""
    ldd = subprocess.run(["ldd", library], check=True, capture_output=True, text=True).stdout
    paths = re.findall(r"=>\s*(\S*lib(?:asan|tsan|ubsan|lsan)\S*)", ldd)
    return {name.split("@")[0] for path in paths for name in dynamic("--defined-only", path)}


def main(library, sanitized):
    problems = []
    defined = dynamic("--defined-only", library)
    if defined != ENTRY_POINTS:
        problems.append("exports: extra %s, missing %s" % (sorted(defined - ENTRY_POINTS), sorted(ENTRY_POINTS - defined)))
    undefined = dynamic("--undefined-only", library)
    runtime = sanitizer_runtime(library) if sanitized else set()
    problems += ["unexpected undefined symbol " + name for name in sorted(undefined - HOST_SYMBOLS)
                 if not RUNTIME.search(name) and not (sanitized and (SANITIZER.match(name) or name in runtime))]
    problems += ["host symbol not referenced: " + name for name in sorted(HOST_SYMBOLS - undefined)]
    readelf = subprocess.run(["readelf", "-d", library], check=True, capture_output=True, text=True).stdout
    if "Library soname: [libsoftware.so.0]" not in readelf:
        problems.append("soname is not libsoftware.so.0")
    print("\n".join(problems))
    return 1 if problems else 0


if __name__ == "__main__":
    sys.exit(main(sys.argv[1], "--sanitized" in sys.argv[2:]))

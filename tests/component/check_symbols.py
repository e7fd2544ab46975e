#!/usr/bin/env python3
"""Checks the symbol tables of the built libsoftware.so.0.

Defined dynamic symbols: exactly the 16 entry points. Undefined ones: only the C
and C++ runtime (versioned glibc, libstdc++, libgcc, zlib symbols and the weak
runtime hooks), zlib's unversioned base functions, and the three symbols the
host supplies. The soname, the versioned file with its link, and the kept
registration objects are checked as well.
"""
import argparse
import os
import re
import subprocess
import sys

ENTRY_POINTS = {
    "GetComponentApp", "DeleteComponentApp", "IsLoaded", "GetID", "GetName", "GetCommands",
    "Execute", "InitClient", "SetConfig", "Unload", "GetClientFileList", "Install", "DataSent",
    "NeedsX", "SetXState", "HaltExecution",
}
HOST_SYMBOLS = {
    "_ZN3zev10Settings_tC1Ev": "zev::Settings_t::Settings_t()",
    "_ZNK3zev10Settings_t11getHomePathB5cxx11Ev": "zev::Settings_t::getHomePath() const",
    "_Z16GetSimpleCommandPKcRNSt7__cxx1112basic_stringIcSt11char_traitsIcESaIcEEE":
        "GetSimpleCommand(const char*, std::string&)",
}
RUNTIME_VERSIONS = re.compile(r"@(GLIBC|GLIBCXX|CXXABI|GCC|ZLIB)_[0-9.]+$")
WEAK_RUNTIME = {"__gmon_start__", "_ITM_deregisterTMCloneTable", "_ITM_registerTMCloneTable",
                "__cxa_finalize"}
ZLIB_BASE = re.compile(r"^(compress|compress2|compressBound|uncompress|uncompress2|deflate\w*|inflate\w*|"
                       r"crc32\w*|adler32\w*|zlibVersion|zError)$")
SANITIZER = re.compile(r"^_*(asan|ubsan|tsan|lsan|sanitizer)_")
REGISTERED = ["CObList", "CStringArray", "CMapStringToOb", "CInvMap", "CListObject", "CSoftwareObject",
              "CSoftwarePackageObject", "CNDKMessage"]


def nm(*args):
    out = subprocess.run(["nm", *args], check=True, capture_output=True, text=True).stdout
    rows = []
    for line in out.splitlines():
        parts = line.split()
        if len(parts) >= 2:
            rows.append((parts[-2], parts[-1]))
    return rows


def sanitizer_runtime_symbols(library):
    """Names defined by the sanitizer runtimes the library needs; their interceptors
    stand in for the C and C++ runtime and come unversioned."""
    out = subprocess.run(["ldd", library], check=True, capture_output=True, text=True).stdout
    names = set()
    for line in out.splitlines():
        match = re.search(r"=>\s*(\S*lib(asan|tsan|ubsan|lsan)\S*)", line)
        if match:
            names.update(name.split("@")[0] for _, name in nm("-D", "--defined-only", match.group(1)))
    return names


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("--library", required=True)
    parser.add_argument("--soname-link", required=True)
    parser.add_argument("--sanitized", action="store_true")
    args = parser.parse_args()
    problems = []

    defined = {name for _, name in nm("-D", "--defined-only", args.library)}
    if defined != ENTRY_POINTS:
        problems.append("exported beyond the entry points: %s" % sorted(defined - ENTRY_POINTS))
        problems.append("entry points missing: %s" % sorted(ENTRY_POINTS - defined))

    host_seen = set()
    runtime = sanitizer_runtime_symbols(args.library) if args.sanitized else set()
    for kind, name in nm("-D", "--undefined-only", args.library):
        if name in HOST_SYMBOLS:
            host_seen.add(name)
        elif RUNTIME_VERSIONS.search(name):
            pass
        elif kind in ("w", "v") and name in WEAK_RUNTIME:
            pass
        elif ZLIB_BASE.match(name):
            pass
        elif args.sanitized and (SANITIZER.match(name) or name in runtime):
            pass
        else:
            problems.append("unexpected undefined symbol %s %s" % (kind, name))
    for name in sorted(set(HOST_SYMBOLS) - host_seen):
        problems.append("host symbol not referenced: %s" % HOST_SYMBOLS[name])

    dynamic = subprocess.run(["readelf", "-d", args.library], check=True, capture_output=True, text=True).stdout
    if "Library soname: [libsoftware.so.0]" not in dynamic:
        problems.append("soname is not libsoftware.so.0")
    if os.path.basename(args.soname_link) != "libsoftware.so.0" or not os.path.islink(args.soname_link):
        problems.append("%s is not the libsoftware.so.0 link" % args.soname_link)
    elif os.path.realpath(args.soname_link) != os.path.realpath(args.library):
        problems.append("libsoftware.so.0 does not point at the built file")
    if not re.match(r"^libsoftware\.so\.0\.\d+\.\d+$", os.path.basename(os.path.realpath(args.library))):
        problems.append("versioned file name expected, got %s" % os.path.realpath(args.library))

    # The registration objects and the settings singleton's creator must survive the link.
    local = {name for _, name in nm(args.library)}
    for cls in REGISTERED:
        if not any(name.endswith("_init_" + cls) for name in local):
            problems.append("registration object of %s was dropped" % cls)
    if not any("singletonINS_10Settings_tEE13create_objectE" in name for name in local):
        problems.append("the settings singleton's creator was dropped")

    for p in problems:
        print(p)
    return 1 if problems else 0


if __name__ == "__main__":
    sys.exit(main())

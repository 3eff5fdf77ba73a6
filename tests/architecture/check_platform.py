#!/usr/bin/env python3
"""Configures the project for another platform and compiles the daemon against it.

usage: check_platform.py ROOT GENERATOR C_COMPILER CXX_COMPILER

The other platform has the same interfaces, but classes of another layout, and headers of nobody else. What is to hold:
the daemon compiles against those headers, none of its sources is given a path of our own platform, and nothing of our
platform or of the small controller is built.
"""
import json
import pathlib
import re
import shutil
import subprocess
import sys
import tempfile

OURS = ("platform/", "controller/")


def make_prefix(root, prefix):
    """Our contract's headers with one more member in every class that hides some, and a library that is empty."""
    shutil.copytree(root / "platform" / "include", prefix / "include")
    changed = 0
    for header in (prefix / "include" / "zal").glob("*.h"):
        text, count = re.subn(r"^ private:\n", " public:\n  long layout_of_its_own_ = 0;\n\n private:\n",
                              header.read_text(), flags=re.M)
        header.write_text(text)
        changed += count
    if changed < 3:
        sys.exit("the other platform does not differ from ours")
    (prefix / "lib").mkdir()
    (prefix / "lib" / "libzal_platform.a").write_bytes(b"!<arch>\n")


def run(command, where):
    done = subprocess.run(command, cwd=where, capture_output=True, text=True, check=False)
    if done.returncode != 0:
        sys.exit(f"{' '.join(map(str, command))}\nended with {done.returncode}:\n{done.stdout}{done.stderr}")


def breaches(root, prefix, commands):
    daemon = [entry for entry in commands if entry["file"].startswith(f"{root}/daemon/")]
    if len(daemon) < 7:
        yield f"only {len(daemon)} sources of the daemon are compiled"
    for entry in commands:
        file = pathlib.Path(entry["file"]).relative_to(root).as_posix()
        if file.startswith(OURS):
            yield f"{file}: built for another platform"
        if f"{root}/platform" in entry["command"]:
            yield f"{file}: is given a path of our own platform"
        if entry in daemon and f"{prefix}/include" not in entry["command"]:
            yield f"{file}: is not given the other platform's headers"


def main():
    root = pathlib.Path(sys.argv[1]).resolve()
    generator, c_compiler, cxx_compiler = sys.argv[2:5]
    with tempfile.TemporaryDirectory(prefix="zal-platform-") as name:
        prefix = pathlib.Path(name) / "prefix"
        build = pathlib.Path(name) / "build"
        make_prefix(root, prefix)
        run(["cmake", "-S", root, "-B", build, "-G", generator, f"-DCMAKE_C_COMPILER={c_compiler}",
             f"-DCMAKE_CXX_COMPILER={cxx_compiler}", f"-DZAL_PLATFORM={prefix}", "-Wno-dev"], root)
        commands = json.loads((build / "compile_commands.json").read_text())
        found = list(breaches(str(root), str(prefix), commands))
        if found:
            sys.exit("\n".join(found))
        for entry in commands:
            if entry["file"].startswith(f"{root}/daemon/"):
                run(["sh", "-c", f"{entry['command']} -fsyntax-only"], entry["directory"])
    print("the daemon knows no platform")


if __name__ == "__main__":
    main()

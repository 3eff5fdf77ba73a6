#!/usr/bin/env python3
"""Checks what the compiler cannot: the arrows between folders, that nobody names the platform he got, that every source
is built, that the map names real files.

usage: check_tree.py ROOT

Prints every breach and exits with 1 if there is one. The checker first proves itself on a tree with known breaches, so
that a rule that stopped working cannot pass unnoticed.
"""
import pathlib
import re
import sys
import tempfile

# folder -> the folders that it may include from. A folder may always include from itself.
ARROWS = {
    "yajson": set(),
    "server/lib/core": {"server/lib", "server/lib/json", "server/lib/websock"},
    "server/lib/json": {"yajson"},
    "server/lib/model": {"server/lib/core", "server/lib/json", "server/lib/steering", "server/lib"},
    "server/lib/steering": {"server/lib/core", "server/lib/json", "server/lib/model", "server/lib"},
    "server/lib/protocol": {"server/lib/core", "server/lib/json", "server/lib/model", "server/lib"},
    "server/lib/planning": {"server/lib/core", "server/lib/model", "server/lib"},
    "server/lib/reports": {"server/lib/core", "server/lib/json", "server/lib"},
    "server/lib/websock": {"server/lib/core", "server/lib/json", "server/lib"},
    "server/lib": {"server/lib/core", "server/lib/json", "server/lib/model", "server/lib/steering",
                   "server/lib/protocol", "server/lib/planning", "server/lib/reports", "server/lib/websock"},
    "platform/include": set(),
    "platform/bus": set(),
    "platform/standalone": {"platform/include", "platform/bus"},
    "daemon": {"server/lib", "server/lib/core", "server/lib/json", "platform/include"},
    "controller": {"platform/include", "platform/bus"},
    "sim": set(),
}

# Files that no file of the folder may include, whatever the folder's arrows say: planning and steering are functions
# over values, and know neither worker nor session nor clock.
FORBIDDEN = {
    "server/lib/planning": {"core/clock.h", "core/BaseSession.h", "Worker.h", "RRM.h", "RrmWorker.h",
                            "WebsockServerWorker.h", "TpcDcaSubworker.h", "core/TimerList.h"},
    "server/lib/steering": {"core/clock.h", "core/BaseSession.h", "Worker.h", "RRM.h", "RrmWorker.h",
                            "WebsockServerWorker.h", "TpcDcaSubworker.h", "core/TimerList.h"},
}

# What only the standalone platform and its other end know. No part that has to run on another platform names it.
PLATFORM_WORDS = re.compile(r"\b(?:ZAL_BUS|ZAL_TRACE_FILE|ZAL_PLATFORM|spdlog|nlohmann|backward\.hpp|zal::bus|"
                            r"platform/(?:bus|standalone))\b")
PLATFORM_BLIND = ("yajson", "server", "daemon", "platform/include")

INCLUDE = re.compile(r'^\s*#\s*include\s*([<"])([^>"]+)[>"]', re.M)
ROOTS = ("", "server/lib", "platform/include")
PRODUCT = ("yajson", "server", "daemon", "platform", "controller", "sim")


def folder_of(path):
    """The longest folder of ARROWS that holds the path."""
    best = None
    for folder in ARROWS:
        if path.startswith(folder + "/") and (best is None or len(folder) > len(best)):
            best = folder
    return best


def resolve(root, source, name):
    """The project's file that an include means, or None for a system header."""
    candidates = [source.parent / name] + [root / base / name for base in ROOTS]
    for candidate in candidates:
        if candidate.is_file():
            return candidate.resolve().relative_to(root.resolve()).as_posix()
    return None


def sources(root, folders, endings=(".h", ".cpp")):
    for folder in folders:
        for path in sorted((root / folder).rglob("*")):
            if path.suffix in endings:
                yield path


def check_arrows(root):
    for source in sources(root, PRODUCT):
        mine = folder_of(source.relative_to(root).as_posix())
        for _, name in INCLUDE.findall(source.read_text()):
            target = resolve(root, source, name)
            where = f"{source.relative_to(root)}: includes {name}"
            if target is None:
                continue
            theirs = folder_of(target)
            if mine is None or theirs is None:
                yield f"{where}: a folder that no rule knows"
            elif theirs != mine and theirs not in ARROWS[mine]:
                yield f"{where}: {mine} must not know {theirs}"
            elif name in FORBIDDEN.get(mine, ()):
                yield f"{where}: {mine} must not know it"


def check_platform_words(root):
    """Nothing that has to run on another platform names what belongs to ours alone."""
    for source in sources(root, PLATFORM_BLIND, (".h", ".cpp", ".txt")):
        for word in PLATFORM_WORDS.findall(source.read_text()):
            yield f"{source.relative_to(root)}: names {word}, which is the standalone platform's"


def check_built(root):
    """Every source file stands in the CMakeLists.txt of its folder or of one above."""
    for source in sources(root, PRODUCT + ("tests", "bench", "fuzz"), (".cpp",)):
        lists = [parent / "CMakeLists.txt" for parent in source.parents if parent == root or root in parent.parents]
        text = "".join(path.read_text() for path in lists if path.is_file())
        if not re.search(r"\b" + re.escape(source.name) + r"\b", text):
            stem = source.name[: -len(".cpp")]
            if not re.search(r"\b" + re.escape(stem) + r"\b", text):
                yield f"{source.relative_to(root)}: in no CMakeLists.txt"


def check_map(root):
    """Every path that the map of the house names in backticks exists."""
    page = root / "docs" / "architecture.md"
    if not page.is_file():
        yield "docs/architecture.md: missing"
        return
    for name in re.findall(r"`([\w./-]+/[\w./-]+|[\w-]+\.(?:h|cpp|md))`", page.read_text()):
        bases = ("", "server/lib", "docs")
        if not any((root / base / name).exists() for base in bases):
            yield f"docs/architecture.md: names {name}, which does not exist"


def breaches(root):
    return [breach for check in (check_arrows, check_platform_words, check_built, check_map) for breach in check(root)]


def prove_checker():
    with tempfile.TemporaryDirectory() as name:
        root = pathlib.Path(name)
        files = {
            "yajson/value.h": '#include "core/log.h"\n',
            "server/lib/core/log.h": "",
            "server/lib/core/clock.h": "",
            "daemon/service.h": 'getenv("ZAL_BUS")\n',
            "server/lib/planning/dca.cpp": '#include "core/clock.h"\n',
            "sim/site.cpp": '#include "yajson/value.h"\n',
            "docs/architecture.md": "see `server/lib/gone.h`\n",
            "CMakeLists.txt": "dca.cpp site.cpp\n",
            "tests/lost_test.cpp": "",
        }
        for path, text in files.items():
            (root / path).parent.mkdir(parents=True, exist_ok=True)
            (root / path).write_text(text)
        expected = [
            "yajson/value.h: includes core/log.h: yajson must not know server/lib/core",
            "server/lib/planning/dca.cpp: includes core/clock.h: server/lib/planning must not know it",
            "sim/site.cpp: includes yajson/value.h: sim must not know yajson",
            "daemon/service.h: names ZAL_BUS, which is the standalone platform's",
            "tests/lost_test.cpp: in no CMakeLists.txt",
            "docs/architecture.md: names server/lib/gone.h, which does not exist",
        ]
        found = breaches(root)
        if sorted(found) != sorted(expected):
            sys.exit("the checker itself is broken; it found:\n" + "\n".join(found))


def main():
    prove_checker()
    found = breaches(pathlib.Path(sys.argv[1]))
    print("\n".join(found) if found else "the tree is in order")
    sys.exit(1 if found else 0)


if __name__ == "__main__":
    main()

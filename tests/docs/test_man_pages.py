"""The manual pages tell what the programs' --help tells: every command, argument and option, and no other."""

import re
import subprocess
import sys
import unittest

ZALCTL, CONTROLLER, ZALCTL_PAGE, CONTROLLER_PAGE = (sys.argv.pop(1) for _ in range(4))


def help_of(program, *command):
    run = subprocess.run([program, *command, "--help"], capture_output=True, text=True, timeout=60, check=False)
    if run.returncode != 0 or run.stderr:
        raise AssertionError(f"{command}: {run.returncode} {run.stderr}")
    return run.stdout


def entries(text, head):
    """What stands under a head of a help text: name and rest of each entry, the description on the same or on the next
    line joined to it."""
    section = text.partition(f"\n{head}:\n")[2].partition("\n\n")[0]
    joined = re.sub(r"\n {10,}", "  ", section)
    return [line.strip() for line in joined.splitlines() if line.strip()]


def commands_of(program):
    """All commands, those of a group by both words."""
    for entry in entries(help_of(program), "Subcommands"):
        name = entry.split()[0]
        inner = [line.split()[0] for line in entries(help_of(program, name), "Subcommands")]
        yield from ((name, each) for each in inner)
        if not inner:
            yield (name,)


def options_of(text):
    """(name, value or "", whether it may be repeated) of each option but --help."""
    for entry in entries(text, "Options"):
        if entry.startswith("-h,--help"):
            continue
        found = re.match(r"(--[a-z-]+)(?: ([A-Z]+)[^ ]*(?: in \[[^]]*\][^ ]*)?)?( \.\.\.)?", entry)
        yield found.group(1), found.group(2) or "", bool(found.group(3))


def arguments_of(text):
    """(name, whether it is required, whether it may be repeated) of each positional argument."""
    usage = re.search(r"^Usage: .*$", text, re.MULTILINE).group(0)
    for word in usage.partition("[OPTIONS]")[2].split():
        name = word.strip("[].")
        if name not in ("SUBCOMMAND", ""):
            yield name, not word.startswith("["), "..." in word


def heading_of(command, text):
    words = list(command)
    for name, required, repeated in arguments_of(text):
        words.append((name if required else f"[{name}]") + ("..." if repeated else ""))
    for name, value, repeated in options_of(text):
        words.append(f"[{name} {value}]" if value else f"[{name}]")
        if repeated:
            words[-1] += "..."
    return " ".join(words)


def tags_of(text):
    names = [name for name, _, _ in arguments_of(text)]
    return names + [f"{name} {value}".strip() for name, value, _ in options_of(text)]


class Page:
    def __init__(self, path):
        with open(path, encoding="utf-8") as file:
            self.lines = [line.replace("\\-", "-") for line in file.read().splitlines()]

    def section(self, head):
        """The lines below a head, up to the next."""
        start = self.lines.index(f".SH {head}") + 1
        end = next((i for i, line in enumerate(self.lines) if i > start and line.startswith(".SH")), len(self.lines))
        return self.lines[start:end]

    def commands(self):
        """Each heading with the tags below it."""
        found = {}
        for line in self.section("COMMANDS"):
            if line.startswith(".SS "):
                found[line[5:-1]] = []
            elif line.startswith(".B ") and previous == ".TP":
                found[list(found)[-1]].append(line[3:])
            previous = line
        return found

    def tags(self, head):
        lines = self.section(head)
        return [line[3:] for previous, line in zip(lines, lines[1:]) if previous == ".TP" and line.startswith(".B ")]


class ManPagesTest(unittest.TestCase):
    maxDiff = None

    def test_zalctl_has_the_commands_of_its_help_with_their_arguments_and_options(self):
        texts = {command: help_of(ZALCTL, *command) for command in commands_of(ZALCTL)}
        self.assertGreater(len(texts), 20)
        self.assertEqual(Page(ZALCTL_PAGE).commands(),
                         {heading_of(command, text): tags_of(text) for command, text in texts.items()})

    def test_the_programs_have_the_options_of_their_help(self):
        for program, page in ((ZALCTL, ZALCTL_PAGE), (CONTROLLER, CONTROLLER_PAGE)):
            self.assertEqual(Page(page).tags("OPTIONS"), [*tags_of(help_of(program)), "-h, --help"])

    def test_every_command_argument_and_option_is_explained_by_help(self):
        for command in [(), *commands_of(ZALCTL)]:
            text = help_of(ZALCTL, *command)
            for head in ("Positionals", "Options", "Subcommands"):
                for entry in entries(text, head):
                    self.assertRegex(entry, r"\S {2,}\S", (command, head))

    def test_they_are_set_without_a_warning(self):
        for page in (ZALCTL_PAGE, CONTROLLER_PAGE):
            run = subprocess.run(["groff", "-man", "-Tutf8", "-ww", "-z", page], capture_output=True, text=True, timeout=60,
                                 check=False)
            self.assertEqual((run.returncode, run.stdout, run.stderr), (0, "", ""), page)


if __name__ == "__main__":
    unittest.main(verbosity=2)

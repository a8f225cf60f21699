"""Holds what the programs themselves say about their options against the list from which completions and manual pages
are made, and the pages against the formatter.

Usage: command_lines_test.py TARSIL VIRTUAL_GLOVE [RECORDING_TOOL]
"""

import json
import os
import pathlib
import re
import shutil
import subprocess
import sys
import unittest

ROOT = pathlib.Path(__file__).resolve().parents[2]
MANUALS = ROOT / "docs" / "man"
BINARIES = dict(zip(["tarsil", "tarsil-virtual-glove", "tarsil-recording"], sys.argv[1:]))

# "  --count <n>   text", "  -o, --output OUT   text"
OPTION_LINE = re.compile(r"^ +(?:(-\w), )?(--[a-z-]+)( <\w+>| [^ ]+)?(?:  |$)", re.MULTILINE)


def listed():
    programs = json.loads((ROOT / "packaging" / "command_lines.json").read_text(encoding="utf-8"))
    return {program["name"]: program for program in programs}


def usage(program, *arguments):
    return subprocess.run([BINARIES[program], *arguments, "--help"] if arguments or program != "tarsil" else
                          [BINARIES[program]], check=True, capture_output=True, text=True, timeout=60).stdout


def said(text):
    """The options in a usage text, each with whether it takes a value."""
    return sorted((name, bool(value)) for _, name, value in OPTION_LINE.findall(text))


def facts(text):
    """The limits and the default that a text about an option states: {"limits": ["800 to 10000"], "default": "1200"}."""
    stated = {"limits": re.findall(r"[0-9.]+ to [0-9.]+", text)}
    default = re.search(r"\(default:? ([^ )]+)|[,;] ([^ ,;]+) by default", text)
    if default:
        stated["default"] = (default.group(1) or default.group(2)).rstrip(".")
    return stated


def facts_said(text):
    """What a usage text states about each option, up to the next one or an empty line."""
    found = {}
    for paragraph in text.split("\n\n"):
        for part in re.split(r"^(?= +(?:-\w, )?--[a-z])", paragraph, flags=re.MULTILINE):
            option = OPTION_LINE.match(part) if part.lstrip().startswith("-") else None
            if option:
                stated = facts(re.sub(r"\s+", " ", part[option.end():]))
                found.setdefault(option.group(2), {"limits": []})["limits"] += stated.pop("limits")
                found[option.group(2)].update(stated)
    return found


def meant(options):
    return sorted((option["name"], "value" in option) for option in options if isinstance(option, dict))


class UsageTexts(unittest.TestCase):
    def test_the_tool_says_the_same(self):
        program = listed()["tarsil"]
        text, common = usage("tarsil").split("Common flags (stream / record / health / doctor):")
        # A command stands two blanks deep, what belongs to it further in.
        blocks = re.split(r"^  (?=[a-z])", text, flags=re.MULTILINE)[1:]
        self.assertEqual([block.split()[0] for block in blocks], [c["name"] for c in program["commands"]])
        for block, command in zip(blocks, program["commands"]):
            self.assertEqual(said(block), meant(command["options"]), command["name"])
            self.assertEqual("<file>" in block.splitlines()[0], "files" in command)
        self.assertEqual(said(common), meant(program["shared"]["source"]))
        self.assertEqual(sorted(c["name"] for c in program["commands"] if "source" in c["options"]),
                         ["doctor", "health", "record", "stream"])

    def test_the_values_of_format_are_the_same(self):
        formats = re.search(r"--format <fmt> +Force format: (.*)", usage("tarsil")).group(1).split(" | ")
        record = next(c for c in listed()["tarsil"]["commands"] if c["name"] == "record")
        words = next(option["words"] for option in record["options"] if option["name"] == "--format")
        self.assertEqual(words, formats)

    def test_the_virtual_glove_says_the_same(self):
        options = listed()["tarsil-virtual-glove"]["options"]
        text = usage("tarsil-virtual-glove")
        self.assertEqual(sorted(set(said(text))), meant(options))
        words = {option["name"]: [word[:-1] for word in option.get("words", [])] for option in options}
        kinds = re.findall(r"^ {28}([a-z]+(?:-[a-z]+)?)  ", text, re.MULTILINE)
        self.assertEqual(kinds, words["--defect"] + words["--fault"])

    @unittest.skipUnless("tarsil-recording" in BINARIES, "tarsil-recording is not part of this build")
    def test_the_recording_tool_says_the_same(self):
        program = listed()["tarsil-recording"]
        commands = re.findall(r"^  ([a-z]+) ", usage("tarsil-recording"), re.MULTILINE)
        self.assertEqual(commands, [command["name"] for command in program["commands"]])
        for command in program["commands"]:
            self.assertEqual(said(usage("tarsil-recording", command["name"])), meant(command["options"]))


class Numbers(unittest.TestCase):
    """Limits and defaults of options are the same on both sides. A default that is no number has words of its own there."""

    def compare(self, text, options, least):
        said_of, compared = facts_said(text), 0
        for option in (option for option in options if isinstance(option, dict)):
            there, here = said_of[option["name"]], facts(option["summary"])
            with self.subTest(option["name"]):
                self.assertEqual(here["limits"], there["limits"])
                if "default" in here and "default" in there:
                    self.assertEqual(here["default"], there["default"])
            compared += len(here["limits"]) + ("default" in here and "default" in there)
        self.assertGreaterEqual(compared, least)

    def test_of_the_tool(self):
        program = listed()["tarsil"]
        text, common = usage("tarsil").split("Common flags (stream / record / health / doctor):")
        blocks = re.split(r"^  (?=[a-z])", text, flags=re.MULTILINE)[1:]
        for block, command in zip(blocks, program["commands"]):
            self.compare(block, command["options"], 1 if command["name"] in ("replay", "health") else 0)
        self.compare(common, program["shared"]["source"], 1)

    def test_of_the_virtual_glove(self):
        self.compare(usage("tarsil-virtual-glove"), listed()["tarsil-virtual-glove"]["options"], 10)

    @unittest.skipUnless("tarsil-recording" in BINARIES, "tarsil-recording is not part of this build")
    def test_of_the_recording_tool(self):
        for command in listed()["tarsil-recording"]["commands"]:
            self.compare(usage("tarsil-recording", command["name"]), command["options"],
                         4 if command["name"] == "plot" else 0)


class Manuals(unittest.TestCase):
    def test_completions_and_option_lists_are_up_to_date(self):
        result = subprocess.run([sys.executable, ROOT / "scripts" / "command-lines", "--check"],
                                check=False, capture_output=True, text=True, timeout=60)
        self.assertEqual((result.stdout, result.returncode), ("", 0))

    def test_every_command_and_option_is_explained(self):
        for name, program in listed().items():
            page = (MANUALS / f"{name}.1").read_text(encoding="utf-8")
            lists = {"options": program["options"], **{k: v for k, v in program.get("shared", {}).items() if k != "help"}}
            for command in program.get("commands", []):
                self.assertIn(f"\n.Ss {command['name']}\n", page)
                if meant(command["options"]):
                    lists[command["name"]] = command["options"]
            for title, options in lists.items():
                section = re.search(rf'begin options of {title}\n(.*?)\.\\" end', page, re.DOTALL)
                self.assertIsNotNone(section, f"{name}: {title}")
                for option, _ in meant(options):
                    self.assertIn(f"Fl {option[1:]}", section.group(1))

    def test_the_synopsis_names_the_options_of_each_command(self):
        for name, program in listed().items():
            page = (MANUALS / f"{name}.1").read_text(encoding="utf-8")
            synopsis = re.search(r"\.Sh SYNOPSIS\n(.*?)\.Sh", page, re.DOTALL).group(1)
            for command in program.get("commands", []):
                form = re.search(rf"^\.Cm {command['name']}$(.*?)(?:^\.Nm|\Z)", synopsis, re.DOTALL | re.MULTILINE)
                words = set(re.findall(r"Fl -?([a-z]+)", form.group(1)))
                expected = {option["name"][2:] for option in command["options"] if isinstance(option, dict)}
                self.assertEqual({"output" if word == "o" else word for word in words}, expected, command["name"])

    def test_the_version_is_that_of_the_library(self):
        version = re.search(r'kVersion = "(.*)"', (ROOT / "tarsil/core/version.h").read_text(encoding="utf-8")).group(1)
        for page in MANUALS.iterdir():
            self.assertIn(f"\n.Os tarsil {version}\n", page.read_text(encoding="utf-8"), page.name)

    @unittest.skipUnless(shutil.which("man"), "no man here")
    def test_the_formatter_has_no_complaint(self):
        for page in sorted(MANUALS.iterdir()):
            result = subprocess.run(["man", "--warnings", "-E", "UTF-8", "-l", "-Tutf8", "-Z", page],
                                    env={**os.environ, "LC_ALL": "C.UTF-8", "MANWIDTH": "80"}, check=False,
                                    capture_output=True, text=True, timeout=60)
            self.assertEqual((result.stderr, result.returncode), ("", 0), page.name)
            self.assertNotEqual(result.stdout, "")


if __name__ == "__main__":
    unittest.main(argv=sys.argv[:1])

"""What the shells offer for the programs' command lines: bash and zsh on a terminal, fish by asking it."""

import json
import os
import pathlib
import subprocess
import sys
import tempfile
import unittest

import shells

SOURCE = shells.COMPLETIONS.parent / "command_lines.json"
PROGRAMS = ["tarsil", "tarsil-virtual-glove", "tarsil-recording"]
FILES = ["grip.csv", "grip.json", "grip.tsl", "LOUD.TSL", "notes.txt"]

# A /dev with two gloves, a modem that is none, and what a terminal needs.
DEVICES = """
set -e
mount --rbind /dev "$1/dev"
mount -t tmpfs devices /dev
mkdir /dev/pts
mount -t devpts -o newinstance,ptmxmode=0666 terminals /dev/pts
ln -s pts/ptmx /dev/ptmx
for name in null tty; do touch /dev/$name; mount --bind "$1/dev/$name" /dev/$name; done
ln -s /proc/self/fd /dev/fd
touch /dev/ttyACM0 /dev/ttyUSB1 /dev/ttyS0
shift
exec "$@"
"""
ISOLATED = ["unshare", "--user", "--map-root-user", "--mount"]


class Completions:
    """The tests, for each shell."""

    kind = None

    def setUp(self):
        self.directory = tempfile.TemporaryDirectory()
        self.addCleanup(self.directory.cleanup)
        for name in FILES:
            pathlib.Path(self.directory.name, name).touch()
        pathlib.Path(self.directory.name, "sessions").mkdir()
        self.shell = self.kind(PROGRAMS, self.directory.name)
        self.addCleanup(self.shell.close)

    def offered(self, line):
        """Directories are offered with their slash, or without it."""
        return [word.rstrip("/") for word in self.shell.all_completions(line)]

    def test_offers_the_commands(self):
        self.assertEqual(self.offered("tarsil "), ["devices", "doctor", "health", "record", "replay", "stream"])
        self.assertEqual(self.offered("tarsil re"), ["record", "replay"])
        self.assertEqual(self.offered("tarsil-recording "), ["check", "convert", "info", "plot", "recover"])

    def test_offers_every_option_of_every_command(self):
        for program in json.loads(SOURCE.read_text(encoding="utf-8")):
            for command in program.get("commands", [program]):
                options = []
                for option in command["options"]:
                    options += program["shared"][option] if isinstance(option, str) else [option]
                if not options:
                    continue
                words = [program["name"]] + ([command["name"]] if "commands" in program else [])
                line = " ".join(words) + " --"
                with self.subTest(line):
                    if len(options) == 1:
                        self.assertEqual(self.offered(line), [options[0]["name"]])
                    else:
                        self.assertEqual(self.offered(line), sorted(option["name"] for option in options))

    def test_offers_no_option_of_another_command(self):
        self.assertNotIn("--frames", self.offered("tarsil replay grip.tsl --"))
        self.assertNotIn("--raw", self.offered("tarsil record grip.tsl --"))

    def test_offers_values(self):
        self.assertEqual(self.offered("tarsil record grip.tsl --format "), ["csv", "json", "tsl"])
        self.assertEqual(self.offered("tarsil record grip.tsl --mock --format c"), ["csv"])
        self.assertEqual(self.offered("tarsil-virtual-glove --side "), ["left", "right"])
        self.assertEqual(self.offered("tarsil-virtual-glove --fault si"), ["silence="])
        self.assertEqual(self.offered("tarsil-virtual-glove --defect st"), ["stuck:"])
        self.assertEqual(self.offered("tarsil stream --count "), [])

    def test_offers_recordings_where_a_recording_is_wanted(self):
        self.assertEqual(self.offered("tarsil replay "), ["LOUD.TSL", "grip.tsl", "sessions"])
        self.assertEqual(self.offered("tarsil record g"), ["grip.csv", "grip.json", "grip.tsl"])
        self.assertEqual(self.offered("tarsil-recording info --json g"), ["grip.tsl"])
        self.assertEqual(self.offered("tarsil-recording plot grip.tsl --output "), ["sessions"])

    def test_offers_values_behind_an_equals_sign(self):
        self.assertEqual(self.offered("tarsil-recording convert --format=c"), ["--format=csv"])
        self.assertEqual(self.offered("tarsil-recording plot grip.tsl --format=p"), ["--format=png"])
        self.assertEqual(self.offered("tarsil-recording plot --output=ses"), ["--output=sessions"])

    def test_offers_files_behind_two_dashes(self):
        self.assertEqual(self.offered("tarsil-recording info -- g"), ["grip.tsl"])
        self.assertEqual(self.offered("tarsil-recording convert -- grip.tsl grip.c"), ["grip.csv"])

    def test_offers_the_ports_that_exist(self):
        command = [*ISOLATED, "sh", "-c", DEVICES, "devices", self.directory.name]
        os.mkdir(os.path.join(self.directory.name, "dev"))
        if subprocess.run([*command, "true"], check=False, capture_output=True).returncode != 0:
            self.skipTest("no mount namespaces here")
        name = next(name for name, kind in shells.KINDS.items() if kind is self.kind)
        output = subprocess.run([*command, sys.executable, __file__, "--ports", name, self.directory.name],
                                check=True, capture_output=True, text=True, timeout=60).stdout
        self.assertEqual(output.split(), ["/dev/ttyACM0", "/dev/ttyUSB1"])


class TypedCompletions(Completions):
    """What takes a terminal."""

    def test_completes_a_unique_word_and_goes_on_behind_it(self):
        self.assertEqual(self.shell.arguments("tarsil rep\tLO\t--lo\t"), ["replay", "LOUD.TSL", "--loop"])

    def test_stays_at_a_value_that_is_not_finished(self):
        self.assertEqual(self.shell.arguments("tarsil-virtual-glove --fau\tsil\t0.01"),
                         ["--fault", "silence=0.01"])

    def test_completes_names_with_blanks(self):
        pathlib.Path(self.directory.name, "two hands.tsl").touch()
        self.assertEqual(self.shell.arguments("tarsil replay two\t"), ["replay", "two hands.tsl"])

    def test_completes_names_that_begin_with_a_dash_behind_two(self):
        pathlib.Path(self.directory.name, "-odd.tsl").touch()
        self.assertEqual(self.shell.arguments("tarsil-recording info -- -\t"), ["info", "--", "-odd.tsl"])

    def test_completes_names_with_colons(self):
        for name in ["left:1.tsl", "left:2.tsl", "right:1.tsl", "pci-0000:00:14.0-port0"]:
            pathlib.Path(self.directory.name, name).touch()
        pathlib.Path(self.directory.name, "a:b").mkdir()
        pathlib.Path(self.directory.name, "a:b", "c:d e.tsl").touch()
        for line, words in [("tarsil replay right:\t", ["replay", "right:1.tsl"]),
                            ("tarsil replay ri\t", ["replay", "right:1.tsl"]),
                            ("tarsil replay left:2\t", ["replay", "left:2.tsl"]),
                            ("tarsil replay le\t2\t", ["replay", "left:2.tsl"]),
                            ("tarsil replay a:b/c:\t", ["replay", "a:b/c:d e.tsl"]),
                            ("tarsil stream --port pci-0000:0\t", ["stream", "--port", "pci-0000:00:14.0-port0"]),
                            ("tarsil-recording info right:\t", ["info", "right:1.tsl"])]:
            with self.subTest(line):
                self.assertEqual(self.shell.arguments(line), words)

    def test_goes_on_behind_a_word_with_separators(self):
        self.assertEqual(self.shell.arguments("tarsil record a:b=c.csv --form\tc\t"),
                         ["record", "a:b=c.csv", "--format", "csv"])
        self.assertEqual(self.shell.arguments("tarsil-recording convert --format=csv a:b.tsl gr\tc\t"),
                         ["convert", "--format=csv", "a:b.tsl", "grip.csv"])

    def test_completes_in_directories(self):
        pathlib.Path(self.directory.name, "sessions", "first.tsl").touch()
        self.assertEqual(self.shell.arguments("tarsil replay ses\tf\t"), ["replay", "sessions/first.tsl"])


class BashTest(TypedCompletions, unittest.TestCase):
    kind = shells.Bash

    def test_does_not_depend_on_where_words_are_parted(self):
        pathlib.Path(self.directory.name, "right:1.tsl").touch()
        self.shell.send("COMP_WORDBREAKS=${COMP_WORDBREAKS//[:=]}\n")
        for line, words in [("tarsil replay right:\t", ["replay", "right:1.tsl"]),
                            ("tarsil replay ri\t", ["replay", "right:1.tsl"]),
                            ("tarsil-recording convert --format=c\t", ["convert", "--format=csv"]),
                            ("tarsil-virtual-glove --fault sil\t0.1", ["--fault", "silence=0.1"])]:
            with self.subTest(line):
                self.assertEqual(self.shell.arguments(line), words)


@unittest.skipUnless("zsh" in shells.installed(), "no zsh here")
class ZshTest(TypedCompletions, unittest.TestCase):
    kind = shells.Zsh


@unittest.skipUnless("fish" in shells.installed(), "no fish here")
class FishTest(Completions, unittest.TestCase):
    kind = shells.Fish


if __name__ == "__main__":
    if sys.argv[1:2] == ["--ports"]:
        shell = shells.KINDS[sys.argv[2]](PROGRAMS, sys.argv[3])
        print("\n".join(shell.all_completions("tarsil stream --port /dev/t")))
        sys.exit(0)
    unittest.main()

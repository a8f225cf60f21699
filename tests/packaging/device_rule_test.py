"""The device rule: every word of it is one that udev knows, and udev itself, where it is installed, has no complaint."""

import pathlib
import re
import shutil
import subprocess
import tempfile
import unittest

RULES = pathlib.Path(__file__).resolve().parents[2] / "packaging" / "udev" / "70-tarsil.rules"

# What a rule may compare and what it may set, with the operators for each.
MATCHES = {"ACTION", "KERNEL", "SUBSYSTEM", "SUBSYSTEMS", "ATTR", "ATTRS", "TEST"}
ASSIGNMENTS = {"TAG": "+=", "GROUP": "=", "MODE": "=", "ENV": "=", "ATTR": "=", "GOTO": "=", "LABEL": "="}
WORD = re.compile(r'([A-Z]+)(?:\{([A-Za-z_]+)\})?(==|!=|\+=|=)"([^"]*)"')

# /run is where rules for the time being are found. What a test of them makes of /dev stays here.
ASK_UDEV = """
mount -t tmpfs devices /dev
touch /dev/null
mount -t tmpfs rules /run
mkdir -p /run/udev/rules.d
cp "$1" /run/udev/rules.d/70-tarsil.rules
exec udevadm test /sys/class/mem/null
"""


def rules(text):
    """The rules of a file, each as its words (key, argument, operator, value)."""
    lines = [line for line in text.splitlines() if line and not line.startswith("#")]
    for line in lines:
        parts = line.split(", ")
        words = [WORD.fullmatch(part) for part in parts]
        if None in words:
            raise ValueError(f"not a rule: {line}")
        yield [word.groups() for word in words]


class DeviceRule(unittest.TestCase):
    def setUp(self):
        self.rules = list(rules(RULES.read_text(encoding="utf-8")))

    def test_consists_of_known_words(self):
        for rule in self.rules:
            for key, _, operator, _ in rule:
                if operator in ("==", "!="):
                    self.assertIn(key, MATCHES)
                else:
                    self.assertEqual(ASSIGNMENTS.get(key), operator, key)

    def test_jumps_to_a_label(self):
        words = [word for rule in self.rules for word in rule]
        labels = [value for key, _, _, value in words if key == "LABEL"]
        self.assertEqual([value for key, _, _, value in words if key == "GOTO"], labels)

    def test_gives_usb_serial_ports_to_the_user_and_to_nobody_else(self):
        rule = next(rule for rule in self.rules if ("TAG", None, "+=", "uaccess") in rule)
        self.assertEqual(rule[:3], [("SUBSYSTEM", None, "==", "tty"), ("KERNEL", None, "==", "ttyACM*|ttyUSB*"),
                                    ("SUBSYSTEMS", None, "==", "usb")])
        self.assertIn(("GROUP", None, "=", "dialout"), rule)
        self.assertIn(("MODE", None, "=", "0660"), rule)
        self.assertIn(("ENV", "ID_MM_DEVICE_IGNORE", "=", "1"), rule)

    def test_comes_before_access_is_handed_out(self):
        self.assertLess(RULES.name, "73-seat-late.rules")

    @unittest.skipUnless(shutil.which("udevadm") and shutil.which("unshare"), "no udevadm here")
    def test_udev_reads_it_without_complaint(self):
        self.assertEqual(self.complaints(RULES), [])
        with tempfile.NamedTemporaryFile("w", suffix=".rules") as wrong:
            wrong.write('SUBSYSTEM=="tty", TAGG+="uaccess"\n')
            wrong.flush()
            self.assertNotEqual(self.complaints(wrong.name), [])

    def complaints(self, path):
        result = subprocess.run(["unshare", "--user", "--map-root-user", "--mount", "sh", "-ec", ASK_UDEV, "rules", path],
                                check=False, capture_output=True, text=True, timeout=60)
        if "Reading rules file: /run/udev/rules.d/70-tarsil.rules" not in result.stderr:
            self.skipTest("udevadm reads no rules here")
        return [line for line in result.stderr.splitlines() if "70-tarsil.rules:" in line]


if __name__ == "__main__":
    unittest.main()

"""What the shared library shows is what tarsil/exports.map names, no more and no less.

Usage: exports_test.py NM READELF LIBRARY VERSION
"""

import os
import pathlib
import re
import subprocess
import sys
import unittest

NM, READELF, LIBRARY, VERSION = sys.argv[1:5]
MAP = pathlib.Path(__file__).resolve().parents[2] / "tarsil" / "exports.map"


def plain(symbol):
    """A symbol's name without version, tag and parameters."""
    symbol = symbol.partition("@@")[0]
    if symbol.startswith(("typeinfo ", "vtable ")):
        return symbol
    return re.sub(r"(\[abi:cxx11\])?\(.*", "", symbol)


class Exports(unittest.TestCase):
    def test_are_those_of_the_list(self):
        text = re.sub(r"/\*.*?\*/", "", MAP.read_text(encoding="utf-8"), flags=re.DOTALL)
        listed = {plain(name.strip().strip('";').rstrip("*"))
                  for name in re.search(r'extern "C\+\+" \{(.*?)\};', text, re.DOTALL).group(1).split(";") if name.strip()}
        rows = subprocess.run([NM, "-D", "--defined-only", "-C", LIBRARY], check=True, capture_output=True, text=True,
                              timeout=60).stdout.splitlines()
        symbols = {plain(row.split(" ", 2)[2]) for row in rows if row.split(" ", 2)[1] != "A"}
        self.assertEqual(symbols, listed)

    def test_bear_the_minor_version_as_the_library_does(self):
        interface = ".".join(VERSION.split(".")[:2])
        rows = subprocess.run([NM, "-D", "--defined-only", LIBRARY], check=True, capture_output=True, text=True,
                              timeout=60).stdout.splitlines()
        self.assertEqual({row.partition("@@")[2] for row in rows if " A " not in row}, {f"TARSIL_{interface}"})
        dynamic = subprocess.run([READELF, "-d", LIBRARY], check=True, capture_output=True, text=True, timeout=60,
                                 env={**os.environ, "LC_ALL": "C"}).stdout
        self.assertIn(f"Library soname: [libtarsil.so.{interface}]", dynamic)

    def test_know_nothing_private(self):
        rows = subprocess.run([NM, "-D", "--defined-only", "-C", LIBRARY], check=True, capture_output=True, text=True,
                              timeout=60).stdout
        self.assertNotIn("detail::", rows)
        self.assertNotIn("Reader", rows)


if __name__ == "__main__":
    unittest.main(argv=sys.argv[:1])

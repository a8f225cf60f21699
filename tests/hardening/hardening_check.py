"""Checks that built programs carry the protections that an optimised build promises.

Usage: hardening_check.py READELF PROBE PROGRAM...

The probe is a program with a call that the compiler can only check at run time; it shows that such calls are checked.
"""

import re
import subprocess
import sys


def read_elf(readelf, program, *what):
    return subprocess.run([readelf, "--wide", *what, program], check=True, capture_output=True, text=True).stdout


def missing_protections(readelf, program):
    header = read_elf(readelf, program, "--file-header")
    segments = read_elf(readelf, program, "--segments")
    dynamic = read_elf(readelf, program, "--dynamic")
    symbols = read_elf(readelf, program, "--dyn-syms")
    present = {
        "position-independent": re.search(r"Type:\s+DYN", header) and re.search(r"FLAGS_1.*\bPIE\b", dynamic),
        "relocations read-only": "GNU_RELRO" in segments,
        "bound at the start": re.search(r"\(FLAGS\).*\bBIND_NOW\b|FLAGS_1.*\bNOW\b", dynamic),
        "stack that is not executable": re.search(r"GNU_STACK.* RW ", segments),
        "stack protector": "__stack_chk_fail" in symbols,
    }
    return [name for name, found in present.items() if not found]


def main():
    readelf, probe, *programs = sys.argv[1:]
    problems = []
    for program in [probe, *programs]:
        problems += [f"{program}: not {name}" for name in missing_protections(readelf, program)]
    if "__memcpy_chk" not in read_elf(readelf, probe, "--dyn-syms"):
        problems.append(f"{probe}: calls are not fortified")
    print("\n".join(problems) or f"{len(programs)} programs are protected")
    return 1 if problems else 0


sys.exit(main())

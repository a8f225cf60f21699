"""The installed tree: what is in it, that its headers need nothing else, and that it can be moved.

Usage: install_test.py CMAKE BUILD COMPILER VERSION
"""

import concurrent.futures
import os
import pathlib
import re
import shutil
import subprocess
import sys
import tempfile
import unittest

CMAKE, BUILD, COMPILER, VERSION = sys.argv[1:5]

HEADERS = [
    "tarsil/core/data_source.h",
    "tarsil/core/device.h",
    "tarsil/core/device_info.h",
    "tarsil/core/errors.h",
    "tarsil/core/frame.h",
    "tarsil/core/marker.h",
    "tarsil/core/mock_source.h",
    "tarsil/core/version.h",
    "tarsil/health/analysis.h",
    "tarsil/health/certificate.h",
    "tarsil/health/report.h",
    "tarsil/recording/recorder.h",
    "tarsil/recording/replayer.h",
    "tarsil/serial/ports.h",
    "tarsil/serial/reconnecting_source.h",
    "tarsil/serial/serial_source.h",
    "tarsil/tarsil.h",
]


def run(*command, **options):
    return subprocess.run(command, check=True, capture_output=True, text=True, timeout=120, **options).stdout


class InstalledTree(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.directory = tempfile.TemporaryDirectory()
        # Installed in one place, used in another.
        installed = pathlib.Path(cls.directory.name, "installed")
        run(CMAKE, "--install", BUILD, "--prefix", installed)
        cls.tree = pathlib.Path(cls.directory.name, "moved")
        installed.rename(cls.tree)
        cls.library = next(cls.tree.glob("lib*/**/libtarsil.*")).parent

    @classmethod
    def tearDownClass(cls):
        cls.directory.cleanup()

    def files(self, *directory):
        base = self.tree.joinpath(*directory)
        return sorted(str(path.relative_to(base)) for path in base.rglob("*") if not path.is_dir())

    def test_has_the_public_headers_and_no_other(self):
        self.assertEqual(self.files("include"), sorted(HEADERS))

    def test_has_what_other_builds_look_for(self):
        names = [path for path in self.files(self.library) if not path.startswith("libtarsil")]
        self.assertIn("cmake/tarsil/tarsilConfig.cmake", names)
        self.assertIn("cmake/tarsil/tarsilConfigVersion.cmake", names)
        self.assertIn("cmake/tarsil/tarsilTargets.cmake", names)
        self.assertIn("pkgconfig/tarsil.pc", names)

    def test_has_completions_and_a_manual_page_for_every_program(self):
        for name in self.files("bin"):
            for path in [f"bash-completion/completions/{name}", f"zsh/site-functions/_{name}",
                         f"fish/vendor_completions.d/{name}.fish", f"man/man1/{name}.1"]:
                self.assertTrue((self.tree / "share" / path).is_file(), path)
        self.assertIn("tarsil", self.files("bin"))
        self.assertIn("tarsil-virtual-glove", self.files("bin"))
        self.assertIn("tarsil-recording.5", self.files("share", "man", "man5"))

    def test_has_the_device_rule_and_the_documentation(self):
        self.assertEqual(self.files("lib", "udev"), ["rules.d/70-tarsil.rules"])
        documents = self.files("share", "doc")
        self.assertIn("tarsil/README.md", documents)
        self.assertIn("tarsil/docs/recording-formats.md", documents)

    def test_every_link_of_a_document_leads_to_a_file(self):
        links = []
        for path in (self.tree / "share" / "doc").rglob("*.md"):
            for link in re.findall(r"\]\(([^)]+)\)", path.read_text(encoding="utf-8")):
                file = link.partition("#")[0]
                if file and not re.match(r"[a-z]+:", file):
                    links.append(link)
                    self.assertTrue((path.parent / file).exists(), f"{path}: {link}")
        self.assertIn("docs/images/recording.svg", links)
        self.assertIn("../CONTRIBUTING.md", links)

    def test_names_neither_the_sources_nor_the_build(self):
        for path in self.tree.rglob("*"):
            if path.is_file() and path.suffix in (".cmake", ".pc", ".h"):
                text = path.read_text(encoding="utf-8")
                self.assertNotIn(BUILD, text, path)
                self.assertNotIn(os.path.dirname(BUILD), text, path)

    def test_its_tool_runs(self):
        self.assertIn("Usage: tarsil <command>", run(self.tree / "bin" / "tarsil"))
        self.assertIn("MOCK-0001", run(self.tree / "bin" / "tarsil", "doctor", "--mock", "--hz", "1000"))

    def test_every_header_compiles_alone(self):
        def compile_alone(header):
            return subprocess.run([COMPILER, "-std=c++20", "-fsyntax-only", "-Wall", "-Wextra", "-Werror",
                                   "-I", self.tree / "include", "-x", "c++", "-"],
                                  input=f'#include "{header}"\n', check=False, capture_output=True, text=True, timeout=120)

        with concurrent.futures.ThreadPoolExecutor(os.cpu_count()) as pool:
            for header, result in zip(HEADERS, pool.map(compile_alone, HEADERS)):
                self.assertEqual((result.stderr, result.returncode), ("", 0), header)

    @unittest.skipUnless(shutil.which("pkg-config"), "no pkg-config here")
    def test_pkg_config_finds_it_where_it_is(self):
        environment = {**os.environ, "PKG_CONFIG_PATH": str(self.library / "pkgconfig")}
        self.assertEqual(run("pkg-config", "--modversion", "tarsil", env=environment).strip(), VERSION)
        flags = run("pkg-config", "--cflags", "--libs", "tarsil", env=environment).split()
        self.assertIn(str(self.tree / "include"), [os.path.normpath(f[2:]) for f in flags if f.startswith("-I")])
        self.assertIn(str(self.library), [os.path.normpath(f[2:]) for f in flags if f.startswith("-L")])
        self.assertIn("-ltarsil", flags)
        # What a static library needs is for every program to link.
        is_static = (self.library / "libtarsil.a").exists()
        self.assertEqual(("-lcurl" in flags, "-pthread" in flags), (is_static, is_static))


if __name__ == "__main__":
    unittest.main(argv=sys.argv[:1])

"""Builds small projects against the library in every way that it offers, and runs what comes out.

Usage: consumers_test.py --source DIR --build DIR --compiler PROGRAM [unittest arguments]

  --source    the library's source tree
  --build     a build directory of it, with everything built: it is installed from there
  --compiler  what the projects are compiled with
"""

import argparse
import json
import os
import pathlib
import re
import shlex
import subprocess
import sys
import tempfile
import unittest

settings = None

OUTPUT = """\
tarsil 0.3.0
MOCK-0001 left, 20 frames
20 joints, 1 marker, document made
ports: listed
ReconnectingSource: closed
Network error
"""


def run(*command, env=None):
    words = [str(word) for word in command]
    done = subprocess.run(words, stdin=subprocess.DEVNULL, capture_output=True, text=True, env=env)
    if done.returncode != 0:
        raise AssertionError(f"{shlex.join(words)}: status {done.returncode}\n{done.stdout}{done.stderr}")
    return done.stdout


def configure(source, build, *definitions):
    run("cmake", "-S", source, "-B", build, f"-DCMAKE_CXX_COMPILER={settings.compiler}",
        *(f"-D{definition}" for definition in definitions))


def compile_target(build, target):
    run("cmake", "--build", build, "--parallel", "2", "--target", target)


class Consumer(unittest.TestCase):
    """What the ways have in common: a directory that goes with the test, and the program that is built in it."""

    @classmethod
    def setUpClass(cls):
        cls.holder = tempfile.TemporaryDirectory()
        cls.addClassCleanup(cls.holder.cleanup)
        cls.work = pathlib.Path(cls.holder.name)

    def expect_output(self, program, env=None):
        self.assertEqual(run(program, self.work / "recording.tsl", env=env), OUTPUT)


class InstalledLibrary:
    """Both ways to an installed library, which lies in `prefix`."""

    projects = pathlib.Path(__file__).parent

    def test_cmake_finds_it(self):
        build = self.work / "cmake"
        configure(self.projects / "installed", build, f"CMAKE_PREFIX_PATH={self.prefix}")
        compile_target(build, "program")
        self.expect_output(build / "program")

    def test_pkg_config_finds_it(self):
        library = self.prefix / self.library
        env = dict(os.environ, PKG_CONFIG_PATH=str(library / "pkgconfig"))
        flags = shlex.split(run("pkg-config", "--cflags", "--libs", "tarsil", env=env))
        program = self.work / "program"
        run(settings.compiler, "-std=c++20", self.projects / "program" / "program.cpp", "-o", program, *flags)
        self.expect_output(program, env=dict(os.environ, LD_LIBRARY_PATH=str(library)))

    def test_pkg_config_names_the_version(self):
        env = dict(os.environ, PKG_CONFIG_PATH=str(self.prefix / self.library / "pkgconfig"))
        self.assertEqual(run("pkg-config", "--modversion", "tarsil", env=env), "0.3.0\n")

    def test_a_version_that_it_is_not_is_not_found(self):
        project = self.work / "later"
        project.mkdir()
        (project / "CMakeLists.txt").write_text(
            "cmake_minimum_required(VERSION 3.25)\nproject(later LANGUAGES CXX)\nfind_package(tarsil 0.4 REQUIRED)\n")
        with self.assertRaisesRegex(AssertionError, r"compatible\s+with\s+requested\s+version"):
            configure(project, project / "build", f"CMAKE_PREFIX_PATH={self.prefix}")

    def libraries(self):
        return sorted(path.name for path in (self.prefix / self.library).glob("libtarsil*"))


class StaticLibrary(InstalledLibrary, Consumer):
    @classmethod
    def setUpClass(cls):
        super().setUpClass()
        cls.prefix = cls.work / "prefix"
        run("cmake", "--install", settings.build, "--prefix", cls.prefix)
        cls.library = next(cls.prefix.glob("lib*/**/libtarsil.a")).parent.relative_to(cls.prefix)

    def test_is_one_file(self):
        self.assertEqual(self.libraries(), ["libtarsil.a"])

    def test_examples_are_built_with_it(self):
        build = self.work / "examples"
        configure(pathlib.Path(settings.source) / "examples", build, f"CMAKE_PREFIX_PATH={self.prefix}")
        compile_target(build, "tarsil_example_own_source")
        self.assertIn("frame 28 closed\n", run(build / "bin" / "examples" / "own_source"))


class SharedLibrary(InstalledLibrary, Consumer):
    @classmethod
    def setUpClass(cls):
        super().setUpClass()
        cls.prefix = cls.work / "prefix"
        build = cls.work / "library"
        # Optimising takes time, and does not matter here.
        configure(settings.source, build, "BUILD_SHARED_LIBS=ON", "CMAKE_BUILD_TYPE=Debug", "CMAKE_CXX_FLAGS_DEBUG=")
        compile_target(build, "tarsil_shared")
        for component in ("library", "dev"):
            run("cmake", "--install", build, "--prefix", cls.prefix, "--component", component)
        cls.library = next(cls.prefix.glob("lib*/**/libtarsil.so")).parent.relative_to(cls.prefix)

    def test_has_a_version(self):
        self.assertEqual(self.libraries(), ["libtarsil.so", "libtarsil.so.0.3", "libtarsil.so.0.3.0"])

    def test_is_all_that_a_program_has_to_link(self):
        env = dict(os.environ, PKG_CONFIG_PATH=str(self.prefix / self.library / "pkgconfig"))
        flags = shlex.split(run("pkg-config", "--libs", "tarsil", env=env))
        self.assertEqual([flag for flag in flags if not flag.startswith("-L")], ["-ltarsil"])


class IncludedSources(Consumer):
    @classmethod
    def setUpClass(cls):
        super().setUpClass()
        cls.build = cls.work / "build"
        # The project itself fails to configure where its settings are changed.
        configure(pathlib.Path(__file__).parent / "included", cls.build, f"TARSIL_DIRECTORY={settings.source}",
                  "CMAKE_CXX_FLAGS=-g0", "CMAKE_UNITY_BUILD=ON", "CMAKE_EXPORT_COMPILE_COMMANDS=ON")
        compile_target(cls.build, "program")

    def test_make_a_program_either_way(self):
        # Both ways have the same objects, so that the second is little more than a link.
        for shared in ("OFF", "ON"):
            configure(pathlib.Path(__file__).parent / "included", self.build, f"BUILD_SHARED_LIBS={shared}")
            compile_target(self.build, "program")
            self.expect_output(self.build / "program")
            self.assertEqual("libtarsil.so.0.3" in run("ldd", self.build / "program"), shared == "ON")

    def test_bring_no_tests(self):
        tests = json.loads(run("ctest", "--test-dir", self.build, "--show-only=json-v1"))["tests"]
        self.assertEqual([test["name"] for test in tests], ["own_test"])

    def test_install_nothing(self):
        prefix = self.work / "prefix"
        run("cmake", "--install", self.build, "--prefix", prefix)
        files = sorted(str(path.relative_to(prefix)) for path in prefix.rglob("*") if not path.is_dir())
        self.assertEqual(files, ["bin/program"])

    def test_bring_no_flags(self):
        commands = json.loads((self.build / "compile_commands.json").read_text())
        (own,) = [entry["command"] for entry in commands if "program.dir" in entry["command"]]
        flags = [word for word in shlex.split(own)[1:] if re.match("-[^oc]", word)]
        # Where their headers are, and the language: that is all they ask for.
        self.assertEqual(flags, [f"-I{settings.source}", "-g0", "-std=gnu++20"])


def main():
    global settings
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("--source", required=True)
    parser.add_argument("--build", required=True)
    parser.add_argument("--compiler", required=True)
    settings, rest = parser.parse_known_args()
    unittest.main(argv=[sys.argv[0], *rest])


if __name__ == "__main__":
    main()

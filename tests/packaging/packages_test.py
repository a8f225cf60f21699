"""The Debian packages: made, checked by Debian's own checker, unpacked and run, installed into an empty root and removed.

Usage: packages_test.py BUILD VERSION CMAKE COMPILER FILE...

  FILE...  what BUILD has built: programs and libraries
"""

import os
import pathlib
import shutil
import subprocess
import sys
import tempfile
import unittest

ROOT = pathlib.Path(__file__).resolve().parents[2]
BUILD, VERSION, CMAKE, COMPILER = sys.argv[1:5]
BUILT = [pathlib.Path(name) for name in sys.argv[5:]]
INTERFACE = ".".join(VERSION.split(".")[:2])


def run(*command, **options):
    result = subprocess.run(command, check=False, stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True,
                            timeout=200, **options)
    if result.returncode != 0:
        raise AssertionError(f"{command}: {result.returncode}\n{result.stdout}")
    return result.stdout


def tree(directory):
    """Everything below a directory that is not dpkg's own."""
    return sorted(str(path.relative_to(directory)) for path in directory.rglob("*")
                  if "var" not in path.relative_to(directory).parts)


def configured(build, *definitions):
    """A build directory as scripts/package makes it. What has been built is the same for every prefix, and taken over."""
    run(CMAKE, "-S", ROOT, "-B", build, "-DCMAKE_BUILD_TYPE=Release", "-DCMAKE_INSTALL_PREFIX=/usr",
        f"-DCMAKE_CXX_COMPILER={COMPILER}", *definitions)
    for path in BUILT:
        copy = build / path.relative_to(BUILD)
        copy.parent.mkdir(parents=True, exist_ok=True)
        shutil.copy2(path, copy, follow_symlinks=False)
    return build


class Packed:
    """Packages that have been made for the tests."""

    definitions = ()

    @classmethod
    def setUpClass(cls):
        cls.directory = tempfile.TemporaryDirectory()
        cls.addClassCleanup(cls.directory.cleanup)
        cls.build = configured(pathlib.Path(cls.directory.name, "build"), *cls.definitions)
        cls.output = pathlib.Path(cls.directory.name, "packages")
        # A user's own mask does not show in what is packed.
        run("sh", "-c", 'umask 077; exec "$0" "$@"', ROOT / "scripts" / "package", "--build", cls.build,
            "--output", cls.output)
        cls.packages = {path.name.split("_")[0]: path for path in cls.output.iterdir()}

    def field(self, package, name):
        return run("dpkg-deb", "--field", self.packages[package], name).strip()

    def depends(self, package):
        return self.field(package, "Depends").split(", ")

    def files(self, package):
        return [row.split()[5][1:] for row in run("dpkg-deb", "--contents", self.packages[package]).splitlines()]

    def fresh(self, name):
        path = pathlib.Path(self.directory.name, name)
        path.mkdir()
        return path

    def check(self, *packages):
        output = run("lintian", "--no-cfg", "--allow-root", "--fail-on", "error,warning",
                     *(self.packages[package] for package in packages))
        self.assertEqual(output, "")


@unittest.skipUnless(shutil.which("dpkg-deb") and shutil.which("dpkg-shlibdeps"), "no Debian tools here")
class Packages(Packed, unittest.TestCase):
    def test_are_these(self):
        self.assertEqual(sorted(self.packages), ["libtarsil-dev", "tarsil", "tarsil-doc", "tarsil-udev"])
        for package in self.packages:
            self.assertEqual(self.field(package, "Version"), VERSION)

    def test_have_the_pictures_of_the_documents(self):
        self.assertIn("/usr/share/doc/tarsil/docs/images/recording.svg", self.files("tarsil-doc"))

    def test_depend_on_the_libraries_of_the_tool_and_no_more(self):
        names = sorted(item.split()[0] for item in self.depends("tarsil"))
        self.assertEqual(names, ["libc6", "libcurl4", "libgcc-s1", "libstdc++6"])
        # An option that is set is that new.
        self.assertIn("libcurl4 (>= 7.85)", self.depends("tarsil"))

    def test_have_the_same_bytes_every_time(self):
        again = self.fresh("again")
        run(ROOT / "scripts" / "package", "--build", self.build, "--output", again)
        for path in again.iterdir():
            self.assertEqual(path.read_bytes(), (self.output / path.name).read_bytes(), path.name)

    def test_belong_to_root_and_can_be_read_by_everybody(self):
        for package in self.packages.values():
            for row in run("dpkg-deb", "--contents", package).splitlines():
                self.assertRegex(row, r"^(drwxr-xr-x|-rwxr-xr-x|-rw-r--r--|lrwxrwxrwx) root/root ")

    def test_run_where_they_are_unpacked(self):
        root = self.fresh("unpacked")
        for package in self.packages.values():
            run("dpkg-deb", "--extract", package, root)
        self.assertIn("MOCK-0001", run(root / "usr/bin/tarsil", "doctor", "--mock", "--hz", "1000"))
        self.assertIn("--link PATH", run(root / "usr/bin/tarsil-virtual-glove", "--help"))
        if shutil.which("man"):
            page = run("man", "-l", root / "usr/share/man/man1/tarsil.1.gz",
                       env={**os.environ, "LC_ALL": "C.UTF-8", "MANPAGER": "cat", "MAN_KEEP_FORMATTING": ""})
            self.assertIn("TARSIL_SERVER_URL", page)

    @unittest.skipUnless(shutil.which("lintian"), "no lintian here")
    def test_leave_the_checker_nothing_to_complain_about(self):
        self.check(*self.packages)

    @unittest.skipUnless(os.geteuid() == 0, "dpkg needs to be root")
    def test_are_removed_without_a_trace(self):
        root = self.fresh("root")
        admin = root / "var/lib/dpkg"
        for name in ["info", "triggers", "updates"]:
            (admin / name).mkdir(parents=True)
        for name in ["status", "available"]:
            (admin / name).touch()
        (root / "etc").mkdir()
        (root / "etc/passwd").touch()
        before = tree(root)
        dpkg = ["dpkg", f"--root={root}", "--force-depends", "--no-triggers", "--log=/dev/null"]
        run(*dpkg, "--install", *self.packages.values())
        self.assertIn("usr/bin/tarsil", tree(root))
        self.assertIn("usr/lib/udev/rules.d/70-tarsil.rules", tree(root))
        self.assertIn("Run diagnostics", run(root / "usr/bin/tarsil"))
        run(*dpkg, "--purge", *self.packages)
        self.assertEqual(tree(root), before)


@unittest.skipUnless(shutil.which("dpkg-deb") and shutil.which("dpkg-shlibdeps"), "no Debian tools here")
class PackagesWithASharedLibrary(Packed, unittest.TestCase):
    definitions = ("-DBUILD_SHARED_LIBS=ON",)
    library = f"libtarsil{INTERFACE}"

    def test_have_the_library_in_one_of_its_own(self):
        self.assertEqual(sorted(self.packages),
                         sorted(["libtarsil-dev", self.library, "tarsil", "tarsil-doc", "tarsil-udev"]))
        names = sorted(path.rpartition("/")[2] for path in self.files(self.library) if "libtarsil.so" in path)
        self.assertEqual(names, [f"libtarsil.so.{INTERFACE}", f"libtarsil.so.{VERSION}"])
        self.assertIn("libtarsil.so", [path.rpartition("/")[2] for path in self.files("libtarsil-dev")])

    def test_depend_on_the_library_as_they_should(self):
        self.assertIn("libcurl4 (>= 7.85)", self.depends(self.library))
        self.assertIn(f"{self.library} (= {VERSION})", self.depends("libtarsil-dev"))
        # The tools have the library in themselves.
        self.assertNotIn(self.library, self.field("tarsil", "Depends"))

    def test_tell_the_system_of_the_library(self):
        def control(name):
            return run("dpkg-deb", "--info", self.packages[self.library], name)

        self.assertEqual(control("shlibs").split(), ["libtarsil", INTERFACE, self.library, "(>=", f"{VERSION})"])
        self.assertEqual(control("triggers").strip(), "activate-noawait ldconfig")
        self.assertNotIn("postinst", run("dpkg-deb", "--info", self.packages[self.library]))

    @unittest.skipUnless(shutil.which("lintian"), "no lintian here")
    def test_leave_the_checker_nothing_to_complain_about(self):
        self.check(self.library, "libtarsil-dev")


if __name__ == "__main__":
    unittest.main(argv=sys.argv[:1])

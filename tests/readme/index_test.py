"""That the README and the index of the documentation lead to every page, and to nothing that is not there."""

import pathlib
import re
import unittest

ROOT = pathlib.Path(__file__).resolve().parents[2]
DOCS = ROOT / "docs"


def targets(page):
    """The files and directories that a page links to."""
    links = re.findall(r"\]\(([^)#:]+)\)", page.read_text(encoding="utf-8"))
    return {(page.parent / link).resolve() for link in links}


class Index(unittest.TestCase):
    def test_leads_to_every_page(self):
        pages = set(DOCS.glob("*.md")) - {DOCS / "README.md"}
        self.assertGreater(len(pages), 5)
        for index in (ROOT / "README.md", DOCS / "README.md"):
            self.assertEqual(pages - targets(index), set(), index)

    def test_leads_to_the_examples_of_both_languages(self):
        self.assertLessEqual({ROOT / "examples", ROOT / "examples" / "python"}, targets(DOCS / "README.md"))

    def test_leads_nowhere_else(self):
        for index in (ROOT / "README.md", DOCS / "README.md"):
            for target in targets(index):
                self.assertTrue(target.exists(), f"{index}: {target}")


if __name__ == "__main__":
    unittest.main()

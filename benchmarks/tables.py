"""Tables as plain text and as Markdown, and putting one into a page."""

import pathlib

END_MARK = "<!-- end -->"

Table = list[tuple[str, ...]]


def as_text(table: Table, right: tuple[int, ...]) -> list[str]:
    """Aligned columns, those with the given numbers to the right. The first line holds the headings."""
    plain = [tuple(cell.replace("`", "") for cell in line) for line in table]
    widths = [max(len(cell) for cell in column) for column in zip(*plain)]

    def aligned(column: int, cell: str) -> str:
        return cell.rjust(widths[column]) if column in right else cell.ljust(widths[column])

    return ["  ".join(aligned(column, cell) for column, cell in enumerate(line)).rstrip() for line in plain]


def as_markdown(table: Table, right: tuple[int, ...]) -> list[str]:
    rule = tuple("---:" if column in right else "---" for column in range(len(table[0])))
    return ["| " + " | ".join(cells) + " |" for cells in (table[0], rule, *table[1:])]


def update(page: pathlib.Path, mark: str, lines: list[str]) -> None:
    """Replaces what stands in the page between the line `<!-- mark -->` and the next end mark."""
    text = page.read_text(encoding="utf-8")
    begin_mark = f"<!-- {mark} -->"
    begin = text.index(begin_mark) + len(begin_mark)
    end = text.index(END_MARK, begin)
    page.write_text(text[:begin] + "\n\n" + "\n".join(lines) + "\n\n" + text[end:], encoding="utf-8")

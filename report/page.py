# SPDX-License-Identifier: Apache-2.0
"""Writes a measurement as one self-contained HTML page with its pictures inside."""

from collections.abc import Sequence
from html import escape
from pathlib import Path

STYLE = """
body { font: 15px/1.5 system-ui, -apple-system, "Segoe UI", "Liberation Sans", sans-serif;
       color: #22272e; background: #f4f5f7; margin: 0; }
main { max-width: 808px; margin: 0 auto; padding: 28px 24px 48px; }
h1 { font-size: 25px; margin: 0 0 4px; }
h2 { font-size: 18px; margin: 32px 0 8px; }
p { margin: 6px 0 16px; }
figure { margin: 0 0 14px; background: #fff; border: 1px solid #dfe2e6; border-radius: 6px;
         padding: 12px 23px; }
svg { display: block; max-width: 100%; height: auto; }
table { border-collapse: collapse; width: 100%; background: #fff; border: 1px solid #dfe2e6;
        font-variant-numeric: tabular-nums; }
th, td { padding: 7px 12px; text-align: right; border-top: 1px solid #e4e7eb; }
th { font-weight: 600; background: #fafbfc; }
th:first-child, td:first-child, td.words, th.words { text-align: left; }
td:first-child { white-space: nowrap; }
li { margin: 3px 0; }
@media print { body { background: #fff; } }
"""


def figure(svg: str) -> str:
    return f"<figure>{svg}</figure>"


def heading(words: str) -> str:
    return f"<h2>{escape(words)}</h2>"


def paragraph(words: str) -> str:
    return f"<p>{escape(words)}</p>"


def bullets(items: Sequence[str]) -> str:
    return "<ul>" + "".join(f"<li>{escape(item)}</li>" for item in items) + "</ul>"


def table(head: Sequence[str], rows: Sequence[Sequence[str]], words: Sequence[int] = ()) -> str:
    """A table whose first column, and those numbered in `words`, hold text."""

    def line(cells: Sequence[str], tag: str) -> str:
        return "<tr>" + "".join(
            f'<{tag}{" class=words" if number in words else ""}>{escape(cell)}</{tag}>'
            for number, cell in enumerate(cells)) + "</tr>"

    return f'<table>{line(head, "th")}{"".join(line(row, "td") for row in rows)}</table>'


def write(path: Path, title: str, parts: Sequence[str]) -> None:
    path.write_text(
        f'<!doctype html>\n<html lang="en"><head><meta charset="utf-8"><title>{escape(title)}'
        f"</title>\n<!-- SPDX-License-Identifier: Apache-2.0 -->\n<style>{STYLE}</style></head>\n"
        f"<body><main>\n<h1>{escape(title)}</h1>\n" + "\n".join(parts)
        + "\n</main></body></html>\n",
        encoding="utf-8")

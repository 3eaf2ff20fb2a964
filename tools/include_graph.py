"""Draws the include graphs of the library, the index service and the application, and checks that each points one way.

    python tools/include_graph.py          writes the pictures in docs/
    python tools/include_graph.py --check  fails when a level includes a higher one, or the picture is out of date
"""

from __future__ import annotations

import argparse
import re
import sys
from collections import defaultdict
from dataclasses import dataclass
from pathlib import Path

ROOT = Path(__file__).resolve().parent.parent
Edges = dict[tuple[str, str], int]


@dataclass(frozen=True)
class Stack:
    """A stack of folders, lowest first. A level may include those before it in the list, never those after it."""

    folder: str
    prefix: str
    picture: Path
    levels: dict[str, str]


LIBRARY = {
    "platform": "paths, executable folder, library loading",
    "core": "records, result codes, transport, cipher",
    "text": "normal form, words, phrase and sequence matching",
    "stt": "speech-to-text engines, interpreter bridge",
    "semantic": "from a text to a vector, by three routes",
    "store": "KsNNDatabase: write, lock, read, search",
    "exchange": "exchange file, dumps",
    "align": "script lines, sequence matcher, Align",
    "host": "component entry points, service launcher",
}

INDEX_SERVICE = {
    "base": "errors, JSON, random identifiers, atomic file writes",
    "engine": "mapping, analysis, postings and values in memory",
    "storage": "documents on disk, write queue, catalogue",
    "query": "query tree, scores, sorting, aggregations, scrolls",
    "scripts": "the fixed set of update scripts",
    "security": "certificate, users, roles, authentication",
    "tools": "check, backup, restore",
    "handlers": "requests, routes, one file per family",
    "http": "connections, limits, TLS",
}

APPLICATION = {
    "base": "errors, callbacks, files, JSON, time codes",
    "media": "decoding, quiet points",
    "home": "state, credentials, catalogue",
    "services": "processes, engines, the store",
    "clips": "transcribe, write, read, search",
    "script": "script formats, placed lines, the page",
    "forms": "subtitles, tables, edits",
    "desk": "the pages' server: who may ask, JSON, media, jobs",
    "terminal": "messages, progress, interruption, pass phrases",
    "commands": "one file per command",
}

STACKS = [
    Stack("kestrelml", "kestrelml/", ROOT / "docs" / "include-graph.svg", LIBRARY),
    Stack("services/index", "", ROOT / "docs" / "include-graph-index.svg", INDEX_SERVICE),
    Stack("apps/kestrel", "apps/kestrel/", ROOT / "docs" / "include-graph-app.svg", APPLICATION),
]


def read_edges(stack: Stack) -> Edges:
    include = re.compile(rf'^\s*#include "{stack.prefix}(\w+)/', re.MULTILINE)
    edges: Edges = defaultdict(int)
    for level in stack.levels:
        for source in (ROOT / stack.folder / level).rglob("*"):
            if source.suffix in {".h", ".cpp"}:
                for target in include.findall(source.read_text(encoding="utf-8")):
                    if target != level:
                        edges[level, target] += 1
    return dict(edges)


def violations(stack: Stack, edges: Edges) -> list[str]:
    order = list(stack.levels)
    folders = {source.relative_to(ROOT / stack.folder).parts[0] for source in (ROOT / stack.folder).rglob("*/*.cpp")}
    unknown = [f"the folder {folder} is no level yet" for folder in sorted(folders - stack.levels.keys())]
    upward = [f"{a} includes {b}" for a, b in sorted(edges) if b not in order or order.index(b) > order.index(a)]
    return unknown + upward


def draw(stack: Stack, edges: Edges) -> str:
    width, box_width, box_height, gap = 900, 380, 54, 34
    order = list(reversed(stack.levels))
    top = {level: 20 + i * (box_height + gap) for i, level in enumerate(order)}
    height = 20 + len(order) * (box_height + gap)
    left = (width - box_width) // 2
    lines = [
        f'<svg xmlns="http://www.w3.org/2000/svg" viewBox="0 0 {width} {height}" font-family="sans-serif" font-size="14">',
        f"<title>Which level of {stack.folder} includes which</title>",
        '<defs><marker id="tip" viewBox="0 0 8 8" refX="8" refY="4" markerWidth="8" markerHeight="8" orient="auto">'
        '<path d="M0 0L8 4L0 8z" fill="#456"/></marker></defs>',
        f'<rect width="{width}" height="{height}" fill="#fff"/>',
    ]
    for number, ((source, target), _) in enumerate(sorted(edges.items())):
        distance = order.index(target) - order.index(source)
        start, end = top[source] + box_height, top[target]
        if distance == 1:
            path = f"M{width // 2} {start}V{end - 2}"
        else:
            side = 1 if number % 2 else -1
            edge = left + box_width if side > 0 else left
            reach = edge + side * (22 + 26 * distance)
            path = f"M{edge} {start - box_height // 2 + 6}C{reach} {start - 10} {reach} {end + 34} {edge + side * 3} {end + box_height // 2 - 6}"
        lines.append(f'<path d="{path}" fill="none" stroke="#456" stroke-width="1.4" marker-end="url(#tip)"/>')
    for level in order:
        y = top[level]
        lines += [
            f'<rect x="{left}" y="{y}" width="{box_width}" height="{box_height}" rx="6" fill="#eef3f8" stroke="#456"/>',
            f'<text x="{width // 2}" y="{y + 22}" text-anchor="middle" font-weight="bold">{stack.folder}/{level}</text>',
            f'<text x="{width // 2}" y="{y + 42}" text-anchor="middle" fill="#345">{stack.levels[level]}</text>',
        ]
    return "\n".join([*lines, "</svg>", ""])


def main() -> int:
    parser = argparse.ArgumentParser(description=(__doc__ or "").splitlines()[0])
    parser.add_argument("--check", action="store_true", help="change nothing, fail when something is wrong")
    check = parser.parse_args().check

    failed = False
    for stack in STACKS:
        edges = read_edges(stack)
        for line in violations(stack, edges):
            failed = True
            print(f"against the order of the levels of {stack.folder}: {line}", file=sys.stderr)
        picture = draw(stack, edges)
        if not check:
            stack.picture.write_text(picture, encoding="utf-8")
        elif not stack.picture.exists() or stack.picture.read_text(encoding="utf-8") != picture:
            failed = True
            print(f"{stack.picture.name} is out of date: run tools/include_graph.py", file=sys.stderr)
    return 1 if failed else 0


if __name__ == "__main__":
    sys.exit(main())

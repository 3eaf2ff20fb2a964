"""The documents keep up with the tree."""

from __future__ import annotations

import re
from pathlib import Path

import pytest

ROOT = Path(__file__).resolve().parents[2]
DOCUMENTS = sorted([*ROOT.glob("*.md"), *(ROOT / "docs").glob("*.md")])


@pytest.mark.parametrize("document", DOCUMENTS, ids=lambda path: path.name)
def test_local_links_lead_somewhere(document: Path) -> None:
    links = re.findall(r"\]\(([^)#:]+)\)", document.read_text(encoding="utf-8"))
    assert [link for link in links if not (document.parent / link).exists()] == []


def test_promises_name_tests_that_exist() -> None:
    sources = "\n".join(
        path.read_text(encoding="utf-8") for path in (ROOT / "tests").rglob("*") if path.suffix in {".cpp", ".py"}
    )
    promised = re.findall(r"`(test_\w+|[A-Z]\w+(?:\.\w+)?)`", (ROOT / "docs" / "failure-modes.md").read_text())
    assert promised
    for name in promised:
        pattern = rf"\({name.replace('.', ', ')}\)" if "." in name else rf"(def |TEST_P\(){name}\b"
        assert re.search(pattern, sources), name

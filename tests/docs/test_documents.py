"""The documents keep up with the tree."""

from __future__ import annotations

import re
import subprocess
from pathlib import Path

import pytest

ROOT = Path(__file__).resolve().parents[2]
DOCUMENTS = sorted([*ROOT.glob("*.md"), *(ROOT / "docs").glob("*.md"), *(ROOT / "bench").glob("*.md")])
PUBLIC_HEADERS = sorted((ROOT / "kestrelml").rglob("KsNN*.h"))


def name_of(document: Path) -> str:
    return document.name


@pytest.mark.parametrize("document", DOCUMENTS, ids=name_of)
def test_local_links_lead_somewhere(document: Path) -> None:
    links = re.findall(r"\]\(([^)#:]+)\)", document.read_text(encoding="utf-8"))
    assert [link for link in links if not (document.parent / link).exists()] == []


@pytest.mark.parametrize("document", DOCUMENTS, ids=name_of)
def test_files_named_in_text_exist(document: Path) -> None:
    """Paths that begin with a folder of the project; what a build makes is left out."""
    folders = "|".join(sorted(folder.name for folder in ROOT.iterdir() if folder.is_dir() and folder.name[0].isalpha()
                              and not folder.name.startswith("build")))
    paths = re.findall(rf"`((?:{folders})/[\w./-]+)", document.read_text(encoding="utf-8"))
    missing = [path for path in paths if not (ROOT / path).exists() and not list(ROOT.glob(path + ".*"))]
    assert missing == []


def cpp_blocks() -> list[tuple[str, str]]:
    return [(f"{document.name}:{number}", block) for document in DOCUMENTS for number, block in
            enumerate(re.findall(r"^```cpp\n(.*?)^```", document.read_text(encoding="utf-8"), re.MULTILINE | re.DOTALL))]


@pytest.mark.parametrize("block", [pytest.param(block, id=place) for place, block in cpp_blocks()])
def test_cpp_in_documents_compiles(block: str, tmp_path: Path) -> None:
    """Against the public headers alone. A block is a piece of a file when it defines a function, else of a function."""
    headers = "".join(f'#include "{header.relative_to(ROOT)}"\n' for header in PUBLIC_HEADERS)
    if not re.search(r"^\w[^;]*\)[^;]*\{$", block, re.MULTILINE):
        block = f"void example() {{\n{block}}}\n"
    source = tmp_path / "example.cpp"
    source.write_text(headers + block, encoding="utf-8")
    compiler = ["c++", "-std=c++20", "-fsyntax-only", "-Wall", "-Wextra", "-Werror", f"-I{ROOT}", str(source)]
    result = subprocess.run(compiler, capture_output=True, text=True, check=False)
    assert result.returncode == 0, result.stderr


def test_promises_name_tests_that_exist() -> None:
    sources = "\n".join(
        path.read_text(encoding="utf-8") for path in (ROOT / "tests").rglob("*") if path.suffix in {".cpp", ".py"}
    )
    rows = re.findall(r"^\|.*\|.*\|(.*)\|$", (ROOT / "docs" / "failure-modes.md").read_text(encoding="utf-8"), re.MULTILINE)
    promised = re.findall(r"`(test_\w+|[A-Z]\w+(?:\.\w+)?)`", "".join(rows))
    assert len(promised) >= len(rows) - 2, "a promise without a test"
    for name in promised:
        pattern = rf"\({name.replace('.', ', ')}\)" if "." in name else rf"(def |TEST_P\(){name}\b"
        assert re.search(pattern, sources), name


def test_every_environment_variable_is_documented() -> None:
    folders = [ROOT / name for name in ("kestrelml", "services", "apps", "python", "tests", "bench", "tools")]
    sources = [path for folder in folders for path in folder.rglob("*") if path.suffix in {".cpp", ".h", ".py"}]
    used = {name for path in sources for name in re.findall(r"\"(KESTREL_[A-Z_]+)\"", path.read_text(encoding="utf-8"))}
    documented = set(re.findall(r"`(KESTREL_[A-Z_]+)`", (ROOT / "docs" / "environment.md").read_text(encoding="utf-8")))
    assert used - documented == set()
    assert documented - used == set()

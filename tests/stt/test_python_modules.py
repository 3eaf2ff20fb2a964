"""The script that assembles PythonModules."""

from __future__ import annotations

import subprocess
import sys
from pathlib import Path

import pytest
from speech_hosts import ROOT

SCRIPT = ROOT / "tools" / "assemble_python_modules.py"


def assemble(*arguments: Path | str) -> subprocess.CompletedProcess[str]:
    command = [sys.executable, str(SCRIPT), *map(str, arguments)]
    return subprocess.run(command, capture_output=True, text=True)


@pytest.fixture
def packages(tmp_path: Path) -> Path:
    folder = tmp_path / "packages"
    (folder / "ours" / "__pycache__").mkdir(parents=True)
    (folder / "ours" / "__init__.py").write_text("answer = 1\n")
    (folder / "hook.pth").write_text("import elsewhere\n")
    (folder / "pip-1.0.dist-info").mkdir()
    return folder


@pytest.mark.parametrize("mode", [[], ["--copy"]])
def test_the_folder_follows_its_sources(mode: list[str], packages: Path, tmp_path: Path) -> None:
    out = tmp_path / "PythonModules"
    assert assemble(out, "--packages", packages, *mode).returncode == 0
    names = {entry.name for entry in out.iterdir()}
    assert {"ours", "json", "encodings", "os.py"} <= names
    assert any(name.startswith("_ctypes.") for name in names), "extension modules are missing"
    assert not names & {"hook.pth", "pip-1.0.dist-info", "site-packages", "dist-packages", "__pycache__"}
    assert all(entry.is_symlink() != bool(mode) for entry in out.iterdir())
    assert assemble(out, "--packages", packages, *mode).stdout == "", "nothing has changed"

    (packages / "ours" / "__init__.py").write_text("answer = 2\n")
    (packages / "new.py").touch()
    (out / "json").rename(out / "left_over")
    assert assemble(out, "--packages", packages, *mode).returncode == 0
    assert (out / "ours" / "__init__.py").read_text() == "answer = 2\n"
    assert {entry.name for entry in out.iterdir()} == names | {"new.py"}


def test_two_sources_of_one_name_are_refused(packages: Path, tmp_path: Path) -> None:
    (packages / "json.py").touch()
    refused = assemble(tmp_path / "out", "--packages", packages / "missing")
    assert refused.returncode == 1 and "run scripts/setup first" in refused.stderr
    (packages / "json").mkdir()
    refused = assemble(tmp_path / "out", "--packages", packages)
    assert refused.returncode == 1 and "have the same name" in refused.stderr
    assert not (tmp_path / "out").exists()

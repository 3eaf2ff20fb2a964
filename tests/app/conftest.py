from __future__ import annotations

from collections.abc import Iterator
from pathlib import Path

import pytest
from app_under_test import Kestrel


@pytest.fixture
def fresh(tmp_path: Path) -> Iterator[Kestrel]:
    """A home in which nothing was ever started."""
    kestrel = Kestrel(tmp_path / "home with space")
    yield kestrel
    kestrel.run("down")


@pytest.fixture(scope="module")
def kestrel(tmp_path_factory: pytest.TempPathFactory) -> Iterator[Kestrel]:
    """A home whose services run for all tests of a file."""
    running = Kestrel(tmp_path_factory.mktemp("kestrel") / "home")
    running.up()
    yield running
    running.run("down")

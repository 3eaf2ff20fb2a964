from __future__ import annotations

import itertools
import sys
from collections.abc import Iterator
from pathlib import Path

import pytest

sys.path.insert(0, str(Path(__file__).resolve().parents[1] / "support"))

from index_process import Client, IndexProcess, Served
from store_mapping import MAPPING

_numbers = itertools.count()


@pytest.fixture(scope="session")
def service(tmp_path_factory: pytest.TempPathFactory) -> Iterator[IndexProcess]:
    """One service for all tests that do not harm it."""
    running = IndexProcess(tmp_path_factory.mktemp("index") / "data").wait_until_ready()
    yield running
    assert running.stop() == 0


@pytest.fixture(scope="session")
def client(service: IndexProcess) -> Client:
    return service.client()


@pytest.fixture
def index(client: Client) -> Iterator[str]:
    """A fresh index with the mapping that stores use."""
    name = f"transcripts_{next(_numbers)}_rel"
    assert client("PUT", name, MAPPING).status == 200
    yield name
    client("DELETE", name)


@pytest.fixture
def data(tmp_path: Path) -> Path:
    return tmp_path / "data"


@pytest.fixture
def served(data: Path) -> Iterator[Served]:
    running = Served(data)
    yield running
    assert running.process.stop() == 0

from __future__ import annotations

from pathlib import Path

import pytest
from speech_hosts import Host, raw_samples


@pytest.fixture(scope="session")
def samples(tmp_path_factory: pytest.TempPathFactory) -> Path:
    """Two short sentences with three seconds between: taken one by one, with progress to see before the end."""
    folder = tmp_path_factory.mktemp("speech")
    first, second = (raw_samples(name, folder).read_bytes() for name in ["librivox_2", "librivox_5"])
    both = folder / "both.raw"
    both.write_bytes(first + bytes(3 * 32000) + second)
    return both


@pytest.fixture
def host(tmp_path: Path) -> Host:
    return Host(tmp_path)

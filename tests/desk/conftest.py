from __future__ import annotations

import sys
from collections.abc import Iterator
from pathlib import Path

import pytest

ROOT = Path(__file__).resolve().parents[2]
sys.path += [str(ROOT / "tests" / "app"), str(ROOT / "tools")]

from app_under_test import SPEECH, Kestrel  # noqa: E402
from browser import Browser  # noqa: E402
from desk_process import Desk  # noqa: E402
from stored_clips import Line, StoredClip, put  # noqa: E402

HOSTILE = "<img src=x onerror=\"document.title='taken'\">"

CLIPS = [
    StoredClip("interview.wav", "Rivers", [
        Line("The old bridge was never finished.", 400, 350, "1"),
        Line("They built a new one down the river, and nobody crossed it.", 3200, 320, "2"),
        Line("Nobody but the ferryman, who had time.", 8000, 330, "1"),
        Line("He told me about the bridge on the first day.", 12000, 300, "2"),
    ], SPEECH / "english_short.wav"),
    StoredClip("entretien.wav", "Rivers", [
        Line("Le vieux pont n'a jamais été fini.", 500, 300, "1", "fr"),
        Line("On a construit une bridge-école plus loin.", 4000, 300, "1", "fr"),
    ], SPEECH / "french.wav"),
    StoredClip(f"{HOSTILE}.wav", "Hostile", [
        Line(f"A word about markup: {HOSTILE} and a bridge.", 500, 300, HOSTILE),
    ], SPEECH / "librivox_4.wav"),
]


@pytest.fixture(scope="session")
def kestrel(tmp_path_factory: pytest.TempPathFactory) -> Iterator[Kestrel]:
    """A home whose services run for all tests, with three clips over real recordings."""
    running = Kestrel(tmp_path_factory.mktemp("kestrel") / "home")
    running.up()
    put(running, *CLIPS)
    yield running
    running.run("down")


@pytest.fixture
def fresh_desk(kestrel: Kestrel) -> Iterator[Desk]:
    with Desk(kestrel) as running:
        yield running


@pytest.fixture(scope="module")
def desk(kestrel: Kestrel) -> Iterator[Desk]:
    """A desk whose requests carry the session's cookie."""
    with Desk(kestrel) as running:
        running.sign_in()
        yield running


@pytest.fixture(scope="module")
def browser(kestrel: Kestrel, tmp_path_factory: pytest.TempPathFactory) -> Iterator[Browser]:
    """A browser that is signed in to a desk."""
    with Desk(kestrel) as running, Browser(tmp_path_factory.mktemp("browser")) as opened:
        opened.desk = running
        opened.driver.get(running.address)
        opened.wait_for("#hits")
        yield opened

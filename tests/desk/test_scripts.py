"""Scripts in the browser: lines beside their takes, the best take of each exported."""

from __future__ import annotations

from pathlib import Path

import pytest
from app_under_test import SPEECH, Kestrel
from browser import Browser
from selenium.webdriver.common.keys import Keys
from stored_clips import Line, StoredClip, put

SCRIPT = "ANNA: The ferry leaves at seven in the morning.\nBERT: Nobody told me about the tickets.\nANNA: An elephant sang.\n"


@pytest.fixture(scope="module")
def takes(kestrel: Kestrel) -> None:
    put(kestrel,
        StoredClip("take 1.wav", "Scene", [Line("The ferry leaves at seven in the morning.", 500, 250),
                                           Line("Nobody said a word of ticks.", 4000, 250)], SPEECH / "english_short.wav"),
        StoredClip("take 2.wav", "Scene", [Line("The fairy leaves seven in the evening.", 700, 250),
                                           Line("Nobody told me about the tickets.", 5000, 250)], SPEECH / "english_long.wav"))


def test_the_best_take_of_each_line_is_played_and_exported(browser: Browser, takes: None, tmp_path: Path) -> None:
    (tmp_path / "scene.txt").write_text(SCRIPT)
    browser.open("#/scripts")
    browser.wait_for(".takes li")
    browser.wait_for("input[type=file]").send_keys(str(tmp_path / "scene.txt"))
    browser.wait_for(".filters input").send_keys("scene")
    browser.wait(lambda: len(browser.all(".takes li")) == 2)
    for box in browser.all(".takes input"):
        box.send_keys(" ")
    browser.wait_text(".count", "of 3 lines found")
    browser.wait(lambda: len(browser.all(".best")) >= 2)
    best = [browser.text(f".script-lines > li:nth-child({line}) .best") for line in (1, 2)]
    assert best == ["take 1.wav 0:00", "take 2.wav 0:05"]
    assert "not found" in browser.text(".script-lines > li:nth-child(3)")
    assert browser.violations_everywhere() == []
    browser.all(".best")[1].send_keys(Keys.ENTER)
    browser.wait_playing(5.0)
    browser.picture("desk-scripts.png")
    browser.press_button("Export the best takes…")
    browser.wait_for("dialog select").send_keys("edl")
    browser.wait_for("dialog input[type=checkbox]").send_keys(" ")
    browser.wait_for("dialog .primary").send_keys(Keys.ENTER)
    saved = browser.wait(lambda: next(browser.downloads.glob("scene.edl"), None), "the file is saved")
    assert saved.read_text().count("  C  ") == 2

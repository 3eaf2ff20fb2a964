"""The library in the browser: real recordings, the real speech service."""

from __future__ import annotations

import json
from pathlib import Path

from app_under_test import SPEECH, Kestrel
from browser import Browser
from selenium.webdriver.common.keys import Keys


def choose(browser: Browser, project: str, *files: Path) -> None:
    browser.open("#/library")
    browser.wait(lambda: browser.js("return document.querySelector('.drop select').options.length") > 50)
    browser.js("document.querySelector('.drop select').value = 'en'")
    field = browser.wait_for(".drop input[type=text]")
    field.clear()
    field.send_keys(project)
    browser.wait_for(".drop input[type=file]").send_keys("\n".join(map(str, files)))


def test_a_file_is_transcribed_found_and_played(browser: Browser, kestrel: Kestrel) -> None:
    choose(browser, "Novel", SPEECH / "librivox_4.wav", SPEECH / "librivox_2.wav")
    browser.wait(lambda: browser.text(".jobs").count("done") == 2, "both are transcribed")
    browser.wait(lambda: "librivox_4.wav" in browser.text(".clips"))
    expected = json.loads((SPEECH / "manifest.json").read_text())["files"]["librivox_4.wav"]["text"]
    browser.open("#/")
    browser.type("more amiabel woman")
    browser.wait_text("#hits mark", "amiable woman")
    assert "amiable woman" in expected
    browser.press(Keys.ENTER)
    browser.wait_playing(0.1)


def test_a_file_that_is_no_media_fails_in_plain_words_and_can_be_dismissed(browser: Browser, tmp_path: Path) -> None:
    (tmp_path / "notes.wav").write_text("no sound at all")
    choose(browser, "Novel", tmp_path / "notes.wav")
    browser.wait_text(".jobs .bad", "is not a media file")
    browser.press_button("Try again: notes.wav")
    browser.wait(lambda: browser.text(".jobs .bad"))
    browser.press_button("Dismiss: notes.wav")
    browser.wait(lambda: "notes.wav" not in browser.text(".jobs"))


def test_what_waits_and_what_runs_can_be_cancelled(browser: Browser) -> None:
    choose(browser, "Cancelled", SPEECH / "spanish.wav", SPEECH / "italian.wav")
    browser.press_button("Cancel: italian.wav")
    browser.press_button("Cancel: spanish.wav")
    browser.wait(lambda: browser.text(".jobs").count("cancelled") == 2)
    browser.press_button("Dismiss: spanish.wav")
    browser.press_button("Dismiss: italian.wav")
    browser.wait(lambda: "spanish" not in browser.text(".jobs"))


def test_a_clip_joins_leaves_and_is_deleted(browser: Browser, kestrel: Kestrel) -> None:
    choose(browser, "First", SPEECH / "librivox_5.wav")
    browser.wait(lambda: "librivox_5.wav" in browser.text(".clips"))
    browser.press_button("Manage librivox_5.wav")
    browser.wait_for("dialog input").send_keys("Second")
    assert browser.violations() == []
    browser.press_button("Add")
    browser.wait(lambda: "First, Second" in browser.text(".clips"))
    browser.press_button("Manage librivox_5.wav")
    browser.press_button("Remove from First")
    browser.wait(lambda: "Second" in browser.text(".clips") and "First" not in browser.text(".clips"))
    browser.press_button("Manage librivox_5.wav")
    browser.press_button("Delete the transcript…")
    browser.wait_text("dialog", "“Second”")
    browser.press_button("Delete")
    browser.wait(lambda: "librivox_5.wav" not in browser.text(".clips"))
    assert "librivox_5" not in kestrel.good("clips").out


def test_filters_and_axe(browser: Browser) -> None:
    browser.open("#/library")
    browser.wait(lambda: len(browser.all(".clips li")) >= 3)
    assert browser.violations_everywhere() == []
    browser.wait_for(".filters input").send_keys("entre")
    browser.wait(lambda: len(browser.all(".clips li")) == 1)
    assert "1 clip of" in browser.text(".count")

"""The library in the browser: real recordings, the real speech service."""

from __future__ import annotations

import json
from collections.abc import Iterator
from pathlib import Path

import pytest
from app_under_test import SPEECH, Kestrel
from browser import Browser
from desk_process import Desk
from selenium.webdriver.common.keys import Keys
from stored_clips import Line, StoredClip, put


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
    # The row still shows the first failure: the second is known when the desk has accepted and ended the job once more.
    browser.wait(lambda: browser.js("return performance.getEntriesByType('resource').some(one => one.name.endsWith('/retry'))"))
    browser.wait(lambda: browser.ask("/api/jobs")["jobs"][-1]["state"] == "failed")
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
    assert browser.violations_everywhere() == []
    browser.press_button("Add to project…")
    browser.wait_for("dialog input").send_keys("Second")
    browser.press_button("Add")
    browser.wait(lambda: "First, Second" in browser.text(".clips"))
    browser.press_button("Manage librivox_5.wav")
    browser.press_button("Remove from First")
    browser.wait(lambda: "Second" in browser.text(".clips") and "First" not in browser.text(".clips"))
    browser.press_button("Manage librivox_5.wav")
    browser.press_button("Transcribe again…")
    browser.press_button("Transcribe")
    browser.wait(lambda: browser.text(".jobs").count("librivox_5.wav") == 2)
    browser.wait(lambda: "waiting" not in browser.text(".jobs") and not browser.all(".jobs progress"), "the second has ended")
    assert browser.all(".jobs .bad") == []
    (clip,) = kestrel.good("clips", "--project", "Second", "--json").json()["clips"]
    assert clip["projects"] == ["Second"]
    browser.press_button("Manage librivox_5.wav")
    browser.press_button("Delete the transcript…")
    browser.wait_text("dialog", "“Second”")
    browser.press_button("Delete")
    browser.wait(lambda: "librivox_5.wav" not in browser.text(".clips"))
    assert "librivox_5" not in kestrel.good("clips").out


def test_several_clips_are_chosen_in_place(browser: Browser, kestrel: Kestrel) -> None:
    put(kestrel, *(StoredClip(f"shot {number}.mov", "Takes", [Line("Once more.", 0)], complete=number != 3) for number in range(4)))
    browser.open("#/library")
    browser.wait(lambda: "shot 3.mov" in browser.text(".clips"))
    browser.wait_for(".filters input").send_keys("shot ")
    browser.wait(lambda: len(browser.all(".clips li")) == 4)
    browser.wait_for(".results-head input").send_keys(" ")
    browser.wait_text(".tools", "4 selected")
    assert browser.violations_everywhere() == []
    browser.press_button("Add to project…")
    browser.wait_for("dialog input").send_keys("Best")
    browser.press_button("Add")
    browser.wait_text("#alerts", "shot 3.mov: the transcript of")
    browser.wait(lambda: browser.text(".clips").count("Best, Takes") + browser.text(".clips").count("Takes, Best") == 3)
    browser.press_button("Clear selection")
    for name in ("shot 1.mov", "shot 2.mov"):
        browser.wait_for(f"[aria-label='Select {name}']").send_keys(" ")
    browser.press_button("Remove from project…")
    browser.wait_for("dialog select").send_keys("Takes")
    browser.press_button("Remove")
    browser.wait(lambda: browser.text(".clips").count("Takes") == 2)
    browser.press_button("Delete…")
    browser.press_button("Delete")
    browser.wait(lambda: len(browser.all(".clips li")) == 2)
    assert [clip["clipName"] for clip in kestrel.good("clips", "--project", "Takes", "--json").json()["clips"]] == ["shot 0.mov", "shot 3.mov"]


@pytest.fixture
def other(tmp_path: Path) -> Iterator[Kestrel]:
    """A home of its own: of several desks of one home, the first keeps the list of jobs."""
    running = Kestrel(tmp_path / "home")
    running.up()
    yield running
    running.run("down")


def test_jobs_outlive_the_desk(other: Kestrel) -> None:
    def asked(desk: Desk) -> list[tuple[str, str]]:
        return [(job["name"], job["state"]) for job in desk.ask("GET", "/api/jobs").json()["jobs"]]

    with Desk(other) as desk:
        desk.sign_in()
        for name in ("broken.wav", "spanish.wav", "italian.wav"):
            content = b"no sound" if name == "broken.wav" else (SPEECH / name).read_bytes()
            assert desk.ask("POST", f"/api/uploads?name={name}&project=Again&language=", content).status == 200
        desk.wait_for("/api/jobs", lambda answer: [job["state"] for job in answer["jobs"]] == ["failed", "running", "waiting"])
        message = desk.ask("GET", "/api/jobs").json()["jobs"][0]["message"]
    with Desk(other) as desk:
        desk.sign_in()
        jobs = desk.ask("GET", "/api/jobs").json()["jobs"]
        assert [job["state"] for job in jobs[:2]] == ["failed", "failed"] and jobs[0]["message"] == message
        assert "the desk ended" in jobs[1]["message"]
        desk.ask("POST", f"/api/jobs/{jobs[2]['job']}/cancel")
        desk.wait_for("/api/jobs", lambda answer: answer["jobs"][2]["state"] in ("cancelled", "done"))
        assert desk.ask("POST", f"/api/jobs/{jobs[1]['job']}/retry").status == 204
        assert asked(desk)[1][1] in ("waiting", "running")
        desk.ask("POST", f"/api/jobs/{jobs[1]['job']}/cancel")
        desk.wait_for("/api/jobs", lambda answer: answer["jobs"][1]["state"] in ("cancelled", "done"))
        assert desk.ask("DELETE", "/api/jobs").status == 204 and asked(desk) == []
    stored = other.home / "desk" / "jobs.json"
    done = dict.fromkeys(("project", "language", "message", "clip"), "") | {"file": "kept.wav", "again": False, "state": "done"}
    for damaged, kept in (("{\"jobs\": [{]", []), (json.dumps({"jobs": [7, {"file": "half"}, done]}), [("kept.wav", "done")])):
        stored.write_text(damaged)
        for _ in range(2):
            with Desk(other) as desk:
                desk.sign_in()
                assert asked(desk) == kept
        assert (other.home / "desk" / "jobs.damaged.json").read_text() == damaged


def test_filters_and_axe(browser: Browser) -> None:
    browser.open("#/library")
    browser.wait(lambda: len(browser.all(".clips li")) >= 3)
    browser.wait_for("summary").click()
    assert browser.violations_everywhere() == []
    browser.wait_for("summary").click()
    if len(browser.all(".jobs li")) > 1:
        browser.press_button("Dismiss all that have ended")
    for box in browser.all(".clips input")[1:3]:
        box.send_keys(" ")
    browser.picture("desk-library.png")
    browser.wait_for(".filters input").send_keys("entre")
    browser.wait(lambda: len(browser.all(".clips li")) == 1)
    assert "1 clip of" in browser.text(".count[role=status]")

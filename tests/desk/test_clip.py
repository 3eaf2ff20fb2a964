"""A clip in the browser: media and transcript in step."""

from __future__ import annotations

from pathlib import Path

import pytest
from app_under_test import SPEECH, Kestrel, make_media
from browser import Browser
from conftest import CLIPS
from desk_process import Desk
from selenium.webdriver import ActionChains
from selenium.webdriver.common.by import By
from selenium.webdriver.common.keys import Keys
from stored_clips import Line, StoredClip, put


def open_clip(browser: Browser, clip: StoredClip = CLIPS[0]) -> None:
    browser.open(f"#/clip/{clip.id}")
    browser.wait_for(".line")
    browser.wait(lambda: browser.js("return document.querySelector('video').readyState") >= 1, "the media is there")
    browser.js("document.querySelector('.scroller').focus()")


def test_the_spoken_word_is_lit_while_it_plays(browser: Browser) -> None:
    open_clip(browser)
    assert "Rivers" in browser.text(".facts") and "2 speakers" in browser.text(".facts")
    browser.press(" ")
    browser.wait_playing(0.5)
    browser.wait(lambda: browser.spoken() in "The old bridge was never finished.".split())
    browser.press("k")
    browser.wait(lambda: browser.player()["paused"])


def test_the_keyboard_steps_words_and_lines(browser: Browser) -> None:
    open_clip(browser)
    browser.press(Keys.ARROW_DOWN)
    browser.wait(lambda: browser.spoken() == "The")
    browser.press(Keys.ARROW_RIGHT, Keys.ARROW_RIGHT)
    browser.wait(lambda: browser.spoken() == "bridge")
    browser.press(Keys.ARROW_DOWN)
    browser.wait(lambda: browser.spoken() == "They")
    browser.press(Keys.ARROW_LEFT)
    browser.wait(lambda: browser.spoken() == "finished.")
    browser.press("l", "l")
    browser.wait(lambda: browser.player()["rate"] == 2)
    browser.press("k")
    browser.wait(lambda: browser.player()["paused"])
    at = browser.player()["time"]
    browser.press("j")
    browser.wait(lambda: browser.player()["time"] < at - 0.3)
    browser.press("k")


def test_a_click_on_a_word_goes_there(browser: Browser) -> None:
    open_clip(browser)
    box = browser.js("const t = document.querySelectorAll('.line p')[1].firstChild; const r = new Range();"
                     "r.setStart(t, t.data.indexOf('river')); r.setEnd(t, t.data.indexOf('river') + 5);"
                     "const b = r.getBoundingClientRect(); return [b.x + b.width / 2, b.y + b.height / 2]")
    element = browser.driver.find_element(By.CSS_SELECTOR, "body")
    actions = ActionChains(browser.driver)
    middle = [element.rect["x"] + element.rect["width"] / 2, element.rect["y"] + element.rect["height"] / 2]
    actions.move_to_element_with_offset(element, int(box[0] - middle[0]), int(box[1] - middle[1])).click().perform()
    browser.wait(lambda: browser.spoken() == "river,", browser.spoken())
    word = CLIPS[0].lines[1].text.split().index("river,")
    assert browser.player()["time"] == pytest.approx((3200 + 320 * word) / 1000, abs=0.01)


def test_find_walks_the_places(browser: Browser) -> None:
    open_clip(browser)
    browser.press("/")
    browser.press("nobody")
    browser.wait_text(".find .count", "1 of 2")
    browser.press(Keys.ENTER)
    browser.wait_text(".find .count", "2 of 2")
    browser.press(Keys.CONTROL, Keys.ENTER)
    browser.wait_playing(7.9)
    assert browser.spoken().startswith(("Nobody", "but", "the"))
    browser.press(Keys.ESCAPE)
    browser.press("k")


def test_the_text_between_in_and_out_is_copied(browser: Browser) -> None:
    open_clip(browser)
    browser.driver.execute_cdp_cmd("Browser.grantPermissions", {
        "permissions": ["clipboardReadWrite", "clipboardSanitizedWrite"], "origin": f"http://{browser.desk.host}"})
    browser.press(Keys.ARROW_DOWN, Keys.ARROW_RIGHT, "i", Keys.ARROW_DOWN, Keys.ARROW_RIGHT, Keys.ARROW_RIGHT, "o")
    browser.press_button("Copy text")
    browser.wait_text("#announcer", "copied")
    copied = browser.driver.execute_async_script("navigator.clipboard.readText().then(arguments[0], arguments[0])")
    assert copied == "old bridge was never finished.\nThey built"


def test_the_wave_form_shows_loudness_and_jumps(browser: Browser) -> None:
    open_clip(browser)
    browser.wait(lambda: browser.js(
        "const c = document.querySelector('.wave canvas'); const d = c.getContext('2d').getImageData(0, 0, c.width, c.height).data;"
        "let drawn = 0; for (let i = 3; i < d.length; i += 4) drawn += d[i] > 0; return drawn / (c.width * c.height)") > 0.05,
        "more than the middle line is drawn")
    wave = browser.wait_for(".wave")
    wave.click()
    half = browser.js("return document.querySelector('video').duration / 2")
    browser.wait(lambda: abs(browser.player()["time"] - half) < 1)
    assert int(str(wave.get_attribute("aria-valuenow"))) == pytest.approx(half, abs=1)


def test_media_that_browsers_cannot_play_gets_a_preview(browser: Browser, kestrel: Kestrel, tmp_path_factory: pytest.TempPathFactory) -> None:
    media = make_media(tmp_path_factory.mktemp("media") / "rushes.mxf", "-f", "lavfi", "-i", "testsrc2=s=320x180:r=25",
                       "-i", SPEECH / "english_short.wav", "-t", 6, "-c:v", "mpeg2video", "-c:a", "pcm_s16le", "-ar", 48000)
    clip = StoredClip("rushes.mxf", "Rivers", [Line("One two three four five six.", 500, 700)], media)
    put(kestrel, clip)
    open_clip(browser, clip)
    browser.wait_text(".stage .note", "Preview")
    browser.press(" ")
    browser.wait_playing(1.0)
    assert browser.js("return document.querySelector('video').videoWidth") > 0


def test_ten_hours_open_and_scroll(browser: Browser, kestrel: Kestrel) -> None:
    lines = [Line("I say a few words about the day.", i * 3500, 300, str(i // 7 % 3)) for i in range(10_300)]
    lines[10_250] = Line("And here is the needle.", 10_250 * 3500, 300)
    clip = StoredClip("long day.wav", "Long", lines)
    put(kestrel, clip)
    browser.open(f"#/clip/{clip.id}")
    browser.wait_for(".line")
    assert "10,300 lines" in browser.text(".facts"), "more segments than the store gives in one answer"
    browser.press("/")
    browser.press("needle")
    browser.wait_text(".find .count", "1 of 1")
    browser.wait(lambda: browser.js(
        "const b = [...document.querySelectorAll('.line')].find((l) => l.textContent.includes('needle'))?.getBoundingClientRect();"
        "return b && b.top > 0 && b.bottom < innerHeight"), "the line is in sight")
    assert "transcribed elsewhere" in browser.text(".stage .note")


def test_a_voice_is_heard_named_and_cleared(browser: Browser, kestrel: Kestrel) -> None:
    clip = StoredClip("voices.wav", "Voices", CLIPS[0].lines, SPEECH / "english_short.wav")
    put(kestrel, clip)
    open_clip(browser, clip)

    def ask(voice: str) -> None:
        browser.wait(lambda: next((one for one in browser.all(".voices button") if one.text.startswith(voice)), None)).click()
        browser.wait_for("dialog[open]")

    def name(voice: str, wanted: str) -> None:
        ask(voice)
        field = browser.wait_for("dialog input")
        field.clear()
        field.send_keys(wanted)
        browser.press_button("Save")

    def speakers() -> list[str]:
        return [who.text for who in browser.all(".line .who")]

    def wait_speakers(*expected: str) -> None:
        browser.wait(lambda: speakers() == list(expected), f"{speakers()} are {expected}")

    wait_speakers("Speaker 1", "Speaker 2", "Speaker 1", "Speaker 2")
    ask("Speaker 2")
    assert browser.violations_everywhere() == []
    browser.press_button("Play at 0:03")
    browser.wait_playing(3.2)
    browser.wait(lambda: browser.player()["paused"], "a sample ends")
    browser.press_button("Cancel")
    anna = ["Speaker 1", "<b>Anna</b>", "Speaker 1", "<b>Anna</b>"]
    name("Speaker 2", "<b>Anna</b>")
    wait_speakers(*anna)
    assert "<b>Anna</b>" in kestrel.good("speakers", "list", "--project", "Voices").out
    browser.press_button("Undo")
    wait_speakers("Speaker 1", "Speaker 2", "Speaker 1", "Speaker 2")
    assert "Anna" not in kestrel.good("speakers", "list", "--project", "Voices").out
    name("Speaker 2", "<b>Anna</b>")
    wait_speakers(*anna)
    name("Speaker 1", "Bert")
    both = ["Bert", "<b>Anna</b>", "Bert", "<b>Anna</b>"]
    wait_speakers(*both)
    name("Bert", "<b>Anna</b>")
    browser.wait(lambda: len(browser.all(".voices button")) == 1, "the two are one")
    browser.press_button("Undo")
    wait_speakers(*both)
    ask("<b>Anna</b>")
    browser.press_button("Remove the name")
    wait_speakers("Bert", "Speaker 2", "Bert", "Speaker 2")
    browser.press_button("Undo")
    wait_speakers(*both)


def test_a_merge_is_undone_in_all_clips(desk: Desk, kestrel: Kestrel) -> None:
    """Also where single segments have other speakers than their label."""
    clips = [StoredClip(f"merge {number}.wav", "Merges", CLIPS[0].lines) for number in range(2)]
    put(kestrel, *clips)

    def change(clip: StoredClip, path: str, **body: object) -> int:
        answer = desk.ask("POST", f"/api/clips/{clip.id}/speakers{path}", body)
        assert answer.status == 200, answer.json()
        return int(answer.json()["undo"])

    def speakers() -> list[list[str]]:
        return [[segment["speaker"] for segment in desk.ask("GET", f"/api/clips/{clip.id}").json()["segments"]] for clip in clips]

    for clip in clips:
        first = change(clip, "", speaker="Speaker 1", name="Anna")
        change(clip, "", speaker="Speaker 2", name="Ben")
    change(clips[1], "/segment", segment=0, name="Ben")
    before = speakers()
    assert before == [["Anna", "Ben", "Anna", "Ben"], ["Ben", "Ben", "Anna", "Ben"]]
    assert desk.ask("POST", "/api/speakers/undo", {"undo": first}).status == 409
    undo = change(clips[0], "", speaker="Ben", name="Anna")
    assert speakers() == [["Anna"] * 4] * 2
    assert desk.ask("POST", "/api/speakers/undo", {"undo": undo}).status == 204
    assert speakers() == before
    assert desk.ask("POST", "/api/speakers/undo", {"undo": undo}).status == 409, "once"
    named = [line.split("  ")[1] for line in kestrel.good("speakers", "list", "--project", "Merges").out.splitlines()]
    assert named == ["Anna", "Ben"]


def test_a_line_is_given_to_another_voice_and_back(browser: Browser, kestrel: Kestrel) -> None:
    clip = StoredClip("lines.wav", "Lines", CLIPS[0].lines, SPEECH / "english_short.wav")
    put(kestrel, clip)
    open_clip(browser, clip)
    browser.press(Keys.ARROW_DOWN, Keys.ARROW_DOWN, Keys.ARROW_DOWN, "v")
    browser.wait_text("dialog", "Nobody but the ferryman")
    browser.wait_for("dialog input").send_keys("Ferryman")
    browser.press_button("Save")
    browser.wait_text(".line:nth-child(3) .who", "Ferryman")
    assert browser.text(".line:nth-child(1) .who") == "Speaker 1"
    browser.press_button("Undo")
    browser.wait_text(".line:nth-child(3) .who", "Speaker 1")


def test_a_transcript_leaves_as_subtitles(browser: Browser) -> None:
    open_clip(browser)
    browser.press_button("Export…")
    browser.wait_for("dialog select").send_keys("srt")
    browser.wait_for("dialog .primary").send_keys(Keys.ENTER)
    saved = browser.wait(lambda: next(browser.downloads.glob("*.srt"), None), "the file is saved")
    assert "00:00:00,400 --> " in saved.read_text() and "nobody crossed it" in saved.read_text().replace("\n", " ")


def test_axe_finds_nothing(browser: Browser) -> None:
    open_clip(browser)
    browser.press(Keys.ARROW_DOWN, "i", Keys.ARROW_DOWN, Keys.ARROW_DOWN, "o")
    assert browser.violations_everywhere() == []
    browser.picture("desk-clip.png")

"""Search in the browser, with the keyboard alone."""

from __future__ import annotations

import pytest
from browser import Browser
from conftest import CLIPS, HOSTILE
from selenium.webdriver.common.keys import Keys


def search(browser: Browser, phrase: str) -> None:
    browser.open("#/")
    browser.type(phrase)
    browser.wait_for("#hits[aria-busy=false] li")
    browser.wait_for(".around .line")


def hits(browser: Browser) -> list[str]:
    return [hit.text for hit in browser.all("#hits li")]


def test_a_hit_is_found_while_typing_and_played_at_the_word(browser: Browser) -> None:
    search(browser, "new one down the rivr")
    assert browser.text("#hits mark") == "new one down the river"
    assert "Speaker 2" in hits(browser)[0] and "0:04" in hits(browser)[0]
    assert [line.text for line in browser.all(".around p")] == [line.text for line in CLIPS[0].lines]
    browser.press(Keys.ENTER)
    browser.wait_playing(4.0)
    browser.wait(lambda: browser.spoken() in "new one down the river, and nobody", "the spoken word is lit")
    browser.press(Keys.ESCAPE)
    browser.wait(lambda: browser.player()["paused"])


def test_the_arrows_walk_the_hits(browser: Browser) -> None:
    search(browser, "bridge")
    total = len(hits(browser))
    assert total > 2 and browser.text(".count") == f"1 of {total} hits"
    browser.press(Keys.ARROW_DOWN)
    browser.wait_text(".count", f"2 of {total}")
    browser.press(Keys.ARROW_UP, Keys.ARROW_UP)
    browser.wait_text(".count", f"{total} of {total}")
    active = browser.js("return document.getElementById(document.activeElement.getAttribute('aria-activedescendant')).className")
    assert active == "active"
    browser.press(Keys.CONTROL, Keys.ENTER)
    browser.wait_for("main.clip .line")


def test_filters_narrow_the_hits(browser: Browser) -> None:
    search(browser, "bridge")
    everything = len(hits(browser))
    labels = [label.text.split("\n")[0] for label in browser.all(".filters label")]
    language = browser.all(".filters select")[labels.index("Language")]
    language.send_keys("French")
    browser.wait(lambda: 0 < len(hits(browser)) < everything)
    assert all("entretien.wav" in hit for hit in hits(browser))


def test_chosen_hits_leave_as_a_string_out(browser: Browser) -> None:
    search(browser, "bridge")
    browser.press(Keys.ARROW_DOWN)
    browser.press(Keys.CONTROL, " ")
    browser.press_button("Export 1 hit…")
    browser.wait_for("dialog select").send_keys("edl")
    browser.wait_for("dialog input[type=checkbox]").send_keys(" ")
    assert browser.violations() == []
    browser.wait_for("dialog .primary").send_keys(Keys.ENTER)
    saved = browser.wait(lambda: next(browser.downloads.glob("*.edl"), None), "the file is saved")
    assert "TITLE: bridge" in saved.read_text()
    assert saved.read_text().count("  C  ") == 1


def test_a_phrase_runs_from_one_segment_into_the_next(browser: Browser) -> None:
    search(browser, "never finishd they built")
    assert browser.text("#hits mark") == "never finished. They built"
    marked = "return [...CSS.highlights.get('hit')].map(String)"
    browser.wait(lambda: browser.js(marked) == ["never finished.", "They built"], "it is marked in both lines")


def test_search_by_meaning_once_a_project_is_indexed(browser: Browser) -> None:
    browser.open("#/")
    browser.wait_text("#no-meaning", "no project is indexed by meaning yet")
    kind = "Array.from(document.querySelectorAll('.filters select')).find((s) => s.options[1]?.value === 'meaning')"
    assert browser.js(f"return {kind}.options[1].disabled")
    assert browser.violations() == []
    browser.open("#/library")
    browser.wait_for("summary").click()
    browser.press_button("Index Rivers for search by meaning")
    browser.wait_text(".jobs", "new segments of 2 clips")
    browser.press_button("Dismiss: Rivers")
    browser.open("#/")
    browser.wait(lambda: browser.js(f"return {kind} && !{kind}.options[1].disabled"), "it is offered")
    browser.type("Niemand hatte Zeit außer dem Fährmann")
    browser.wait_text(".count", "Nothing found")
    browser.js(f"const s = {kind}; s.value = 'meaning'; s.dispatchEvent(new Event('change'))")
    browser.wait(lambda: hits(browser) and "Nobody but the ferryman" in hits(browser)[0])
    browser.wait_text(".around", "Nobody but the ferryman")
    browser.press(Keys.ENTER)
    browser.wait_playing(8.0)
    browser.js(f"const s = {kind}; s.value = 'spelling'; s.dispatchEvent(new Event('change'))")


def test_what_is_not_said_is_not_found(browser: Browser) -> None:
    browser.open("#/")
    browser.type("xylophone quagmire")
    browser.wait_text(".count", "Nothing found")
    assert hits(browser) == []


def test_markup_in_names_and_texts_is_text(browser: Browser) -> None:
    search(browser, "word about markup")
    assert HOSTILE in browser.text("#hits li") and HOSTILE in browser.text(".panel h2")
    browser.press(Keys.CONTROL, Keys.ENTER)
    browser.wait_text("main.clip h1", HOSTILE)
    browser.wait_text(".line p", HOSTILE)
    browser.open("#/library")
    browser.wait_text(".clips", HOSTILE)
    assert browser.all("main img") == []
    assert browser.js("return document.title") == "Kestrel"
    assert browser.complaints() == []


@pytest.mark.parametrize("attempt", [
    "document.body.innerHTML = '<p>x</p>'",
    "document.createElement('img').setAttribute('onerror', 'document.title = 1')",
    "const s = document.createElement('script'); s.text = 'document.title = 1'; document.body.append(s)",
    "const s = document.createElement('script'); s.src = 'http://127.0.0.1:1/x.js'; document.body.append(s)",
    "document.body.append(document.createElement('iframe')); document.querySelector('iframe').srcdoc = '<script>1</script>'",
])
def test_a_script_that_gets_in_does_not_run(browser: Browser, attempt: str) -> None:
    """Even when a page were fooled: no script but those of the desk runs."""
    browser.open("#/")
    assert browser.js(f"try {{ {attempt} }} catch (e) {{ return e.name }}") == "TypeError"
    assert browser.js("return document.title") == "Kestrel"


def test_another_page_in_the_same_browser_gets_nothing(browser: Browser) -> None:
    driver = browser.driver
    driver.get("data:text/html,<title>other</title>")
    outcome = driver.execute_async_script(
        "const done = arguments[1]; fetch(arguments[0], {credentials: 'include', mode: 'no-cors'})"
        ".then((r) => r.text()).then((t) => done('read: ' + t), () => done('refused'))",
        f"http://{browser.desk.host}/api/projects")
    assert outcome in ("read: ", "refused")
    driver.get(f"http://evil.example:{browser.desk.port}/")  # a name of theirs that leads to this machine
    assert "the desk is at" in browser.text("body")
    browser.open("#/")
    browser.wait_for(".phrase")


def test_axe_finds_nothing(browser: Browser) -> None:
    search(browser, "old brige")
    assert browser.violations_everywhere() == []
    browser.picture("desk-search.png")

"""Exchange files in the browser: out under a pass phrase, in again with a preview."""

from __future__ import annotations

from app_under_test import TRANSCRIPTS, Kestrel
from browser import Browser
from conftest import HOSTILE
from desk_process import Desk
from stored_clips import Line, StoredClip, put

PHRASE = "Nur für beide Häuser"
CLIPS = [StoredClip("ferry.mov", "Travels", [Line("The ferry leaves at seven.", 0), Line("It was late.", 4000)]),
         StoredClip(f"{HOSTILE}.mov", "Travels", [Line("Nobody came.", 0)])]


def travels(kestrel: Kestrel) -> list[str]:
    kestrel.index("POST", f"{TRANSCRIPTS}/_refresh")
    query = {"query": {"terms": {"mediaGuid.keyword": [clip.id for clip in CLIPS]}}, "sort": [{"mediaGuid.keyword": {"order": "asc"}}, {"segment": {"order": "asc"}}]}
    return [hit["_source"]["transcript"] for hit in kestrel.index("POST", f"{TRANSCRIPTS}/_search", query)["hits"]["hits"]]


def type_phrases(browser: Browser, *phrases: str) -> None:
    for field, phrase in zip(browser.all("dialog input[type=password]"), phrases, strict=True):
        field.clear()
        field.send_keys(phrase)


def import_file(browser: Browser, path: str, phrase: str) -> None:
    browser.open("#/library")
    browser.wait_for("input[accept='.kst']").send_keys(path)
    browser.wait_for("dialog[open] input[type=password]").send_keys(phrase)
    browser.press_button("Preview")


def test_a_project_leaves_and_comes_back(browser: Browser, kestrel: Kestrel) -> None:
    put(kestrel, *CLIPS)
    kestrel.good("speakers", "create", HOSTILE, "--project", "Travels")
    kestrel.good("speakers", "assign", HOSTILE, CLIPS[0].id, "--label", "1", "--project", "Travels")
    browser.open("#/library")
    browser.wait_for("summary").click()
    browser.press_button("Export Travels")
    type_phrases(browser, PHRASE, "another")
    browser.press_button("Save")
    browser.wait_text("dialog", "differ")
    assert browser.violations_everywhere() == []
    type_phrases(browser, PHRASE, PHRASE)
    browser.press_button("Save")
    file = browser.wait(lambda: next(browser.downloads.glob("Travels.kst"), None), "the file is saved")
    before = travels(kestrel)
    assert len(before) == 3

    browser.press_button("Delete Travels")
    browser.wait_text("dialog", "2 transcripts")
    browser.press_button("Delete")
    browser.wait(lambda: "Travels" not in browser.text(".projects"))
    assert travels(kestrel) == []

    import_file(browser, str(file), "wrong")
    browser.wait_text("dialog", "another pass phrase")
    type_phrases(browser, PHRASE)
    browser.press_button("Preview")
    browser.wait_text("dialog", "2 clips are new")
    assert HOSTILE in browser.text(".plan") and browser.all("main img") == []
    assert f"Names of speakers come along: {HOSTILE}" in browser.text("dialog")
    assert browser.violations_everywhere() == []
    assert travels(kestrel) == [], "a preview changes nothing"
    browser.press_button("Import")
    browser.wait_text(".clips", "ferry.mov")
    assert travels(kestrel) == before
    assert HOSTILE in kestrel.good("show", CLIPS[0].id).out
    assert "Travels" in browser.text(".projects"), "called as the file when it is not known here"

    import_file(browser, str(file), PHRASE)
    browser.wait_text("dialog", "2 clips replace transcripts of this library")
    browser.press_button("Cancel")
    assert browser.complaints() == []


def test_chosen_clips_leave_alone(desk: Desk, kestrel: Kestrel) -> None:
    put(kestrel, StoredClip("one.mov", "Chosen", [Line("One.", 0)]), StoredClip("two.mov", "Chosen", [Line("Two.", 0)]))
    one = StoredClip("one.mov", "Chosen", []).id
    answer = desk.ask("POST", "/api/transfers/export", {"title": "../a/b", "projects": ["Chosen"], "clips": [one], "passPhrase": "p"})
    transfer = answer.json()["transfer"]
    state = desk.wait_for(f"/api/transfers/{transfer}", lambda state: state["state"] != "running")
    assert (state["state"], state["result"]) == ("done", {"segments": 1, "clips": 1})
    file = desk.ask("GET", f"/api/transfers/{transfer}/file")
    assert file.headers["Content-Disposition"].startswith("attachment; ") and "/" not in file.headers["Content-Disposition"]
    assert len(file.body) > 100
    assert desk.ask("DELETE", f"/api/transfers/{transfer}").status == 204
    assert desk.ask("GET", f"/api/transfers/{transfer}/file").status == 404


def test_what_cannot_be_exported_or_imported_is_said(desk: Desk, kestrel: Kestrel) -> None:
    def end(transfer: int) -> str:
        state = desk.wait_for(f"/api/transfers/{transfer}", lambda state: state["state"] != "running")
        assert state["state"] == "failed"
        return str(state["message"])

    assert 'no project "Nowhere"' in end(desk.ask("POST", "/api/transfers/export", {"projects": ["Nowhere"], "passPhrase": "p"}).json()["transfer"])
    transfer = desk.ask("POST", "/api/transfers?name=notes.kst", b"no exchange file").json()["transfer"]
    folder = kestrel.home / "desk" / "transfers"
    (kept,) = folder.rglob("notes.kst")
    assert kept.read_bytes() == b"no exchange file" and kept.parents[1].stat().st_mode & 0o77 == 0
    for action in ("preview", "import"):
        assert desk.ask("POST", f"/api/transfers/{transfer}/{action}", {"passPhrase": "p", "project": ""}).status == 204
        message = end(transfer)
        assert message.startswith("notes.kst cannot be read") and str(kestrel.home) not in message
    assert desk.ask("POST", f"/api/transfers/{transfer}/preview", {"passPhrase": ""}).status == 400
    assert desk.ask("GET", f"/api/transfers/{transfer}/file").status == 404, "what came in does not go out"
    assert desk.ask("DELETE", f"/api/transfers/{transfer}").status == 204
    assert list(folder.rglob("notes.kst")) == []

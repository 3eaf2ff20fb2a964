"""A project moves from one installation to another in one encrypted file."""

from __future__ import annotations

import base64
import json
import re
import subprocess
import textwrap
from collections.abc import Iterator
from hashlib import md5
from pathlib import Path
from typing import Any

import pytest
from app_under_test import BIN, TRANSCRIPTS, Kestrel
from cryptography.hazmat.primitives.ciphers import Cipher, algorithms, modes
from cryptography.hazmat.primitives.padding import PKCS7
from stored_clips import Line, StoredClip, documents, project_id, put

PHRASE = "Ein Satz, den nur beide Häuser kennen"
SALT = b"p4tz7rm1q06vhe93"


@pytest.fixture(scope="module")
def house(kestrel: Kestrel) -> Kestrel:
    """The installation that sends, with two projects."""
    kestrel.environment["KESTREL_PASS_PHRASE"] = PHRASE
    for number in range(3):
        lines = [Line(f"Segment {i} of clip {number}: \"naïve\" \\ and 日本語 😀\n\ttabs", 1000 * i) for i in range(40)]
        put(kestrel, StoredClip(f"river {number}.mov", "Rivers", lines))
    put(kestrel, StoredClip("other.mov", "Others", [Line("Not for travelling.", 0)]))
    kestrel.index("POST", f"{TRANSCRIPTS}/_refresh")
    return kestrel


@pytest.fixture
def other(tmp_path: Path) -> Iterator[Kestrel]:
    """The installation that receives, empty."""
    receiving = Kestrel(tmp_path / "other")
    receiving.environment["KESTREL_PASS_PHRASE"] = PHRASE
    receiving.up()
    yield receiving
    receiving.run("down")


@pytest.fixture(scope="module")
def exchange_file(house: Kestrel, tmp_path_factory: pytest.TempPathFactory) -> Path:
    file = tmp_path_factory.mktemp("exchange") / "rivers.kst"
    assert "120 segments of 3 clips" in house.good("export", file, "--project", "Rivers").err
    return file


def rivers(kestrel: Kestrel) -> list[dict[str, Any]]:
    return [document for document in documents(kestrel) if project_id("Rivers") in document["projectGuidList"]]


def derived(phrase: str) -> tuple[bytes, bytes]:
    """Key and vector as OpenSSL's EVP_BytesToKey derives them: MD5, 2000 rounds, a salt folded to eight bytes."""
    salt = bytes(a ^ b for a, b in zip(SALT[:8], SALT[8:]))
    material = block = b""
    while len(material) < 48:
        block += phrase.encode() + salt
        for _ in range(2000):
            block = md5(block).digest()
        material += block
    return material[:32], material[32:48]


def cipher(phrase: str) -> Cipher[modes.CBC]:
    key, vector = derived(phrase)
    return Cipher(algorithms.AES(key), modes.CBC(vector))


def decrypted(text: bytes, phrase: str = PHRASE) -> bytes:
    decryptor = cipher(phrase).decryptor()
    unpadder = PKCS7(128).unpadder()
    plain = decryptor.update(base64.b64decode(text)) + decryptor.finalize()
    return unpadder.update(plain) + unpadder.finalize()


def encrypted(plain: bytes, phrase: str = PHRASE) -> bytes:
    padder = PKCS7(128).padder()
    encryptor = cipher(phrase).encryptor()
    data = encryptor.update(padder.update(plain) + padder.finalize()) + encryptor.finalize()
    lines = textwrap.wrap(base64.b64encode(data).decode(), 72)
    return "\r\n".join(lines).encode()


def test_the_cipher_is_the_one_that_others_compute(house: Kestrel, exchange_file: Path, other: Kestrel) -> None:
    text = exchange_file.read_bytes()
    plain = decrypted(text)
    assert encrypted(plain) == text.rstrip(b"\r\n"), "byte for byte, lines too"
    (page,) = json.loads(plain)
    assert [hit["_source"] for hit in page["hits"]["hits"]] == rivers(house)

    made = exchange_file.with_name("made.kst")
    made.write_bytes(encrypted(json.dumps([page], ensure_ascii=False).encode()))
    assert "120 segments of 3 clips: 3 new, 0 replaced" in other.good("import", made, "--project", "Rivers").out
    assert documents(other) == rivers(house)


def test_it_arrives_whole_whatever_was_there(house: Kestrel, exchange_file: Path, other: Kestrel) -> None:
    for expected in ({"new": 3, "replaced": 0}, {"new": 0, "replaced": 3}):
        dry = other.good("import", exchange_file, "--project", "Rivers", "--json", "--dry-run").json()
        assert {key: len(dry[key]) for key in expected} == expected
        before = documents(other) if expected["replaced"] else []
        other.good("import", exchange_file, "--project", "Rivers")
        assert documents(other) == rivers(house) and (not before or before == rivers(house))
    found = other.good("search", "naive", "--project", "Rivers", "--max", 3, "--json").json()["hits"]
    assert len(found) == 3
    assert other.good("show", "river 1.mov", "--json").json()["segments"][7]["text"].startswith("Segment 7 of clip 1")

    clip = rivers(house)[0]["mediaGuid"]
    query = {"query": {"term": {"mediaGuid.keyword": clip}}}
    other.index("POST", f"{TRANSCRIPTS}/_delete_by_query", query)
    summary = other.good("import", exchange_file, "--project", "Rivers", "--json").json()
    assert [len(summary[key]) for key in ("new", "replaced", "filedUnderProject")] == [1, 2, 0]
    assert documents(other) == rivers(house)


def test_clips_of_unknown_projects_are_filed_under_the_placeholder(exchange_file: Path, other: Kestrel) -> None:
    def projects() -> set[tuple[str, ...]]:
        return {tuple(document["projectGuidList"]) for document in documents(other)}

    result = other.good("import", exchange_file)
    assert "3 of the clips belong to no project" in result.err and projects() == {("KST_Import_ProjectGuid",)}
    (command,) = re.findall("`kestrel (.*) NAME`", result.err)
    other.good(*command.split(), "Seas")
    assert projects() == {(project_id("Seas"),)}
    other.good("delete", "--whole-project", "--project", "Seas", "--yes")
    other.good("import", exchange_file, "--project", "Lakes")
    assert projects() == {(project_id("Lakes"),)}, "the project that was named, although the file does not know it"


def test_names_of_speakers_travel(house: Kestrel, other: Kestrel, tmp_path: Path) -> None:
    def names(kestrel: Kestrel) -> list[str]:
        return [one["speaker"] for one in kestrel.good("speakers", "list", "--project", "Talks", "--json").json()["speakers"]]

    def speaking() -> list[str]:
        return [one["speakerName"] for one in other.good("show", "talk.mov", "--json").json()["segments"]]

    def assign(kestrel: Kestrel, name: str, clip: str, label: str) -> None:
        kestrel.good("speakers", "create", name, "--project", "Talks")
        kestrel.good("speakers", "assign", name, StoredClip(clip, "Talks", []).id, "--label", label, "--project", "Talks")

    lines = [Line("I speak.", 0, speaker="1"), Line("So do I.", 2000, speaker="2"), Line("Nobody knows me.", 4000, speaker="3"),
             *(Line(f"And I, for the time number {n}.", 1000 * n, speaker="1") for n in range(6, 9))]
    put(house, StoredClip("talk.mov", "Talks", lines), StoredClip("alone.mov", "Talks", lines[:1]))
    for name, clip, label in (("Anna", "talk.mov", "1"), ("Ben", "talk.mov", "2"), ("Carl", "alone.mov", "1")):
        assign(house, name, clip, label)
    talk = StoredClip("talk.mov", "Talks", []).id
    house.good("speakers", "assign", "Ben", talk, "--segment", 3, "--project", "Talks")
    house.good("speakers", "clear", "Anna", "--clip", talk, "--segment", 4, "--project", "Talks", "--yes")
    put(other, StoredClip("local.mov", "Talks", lines[:1]))
    assign(other, "Ben", "local.mov", "1")
    file = tmp_path / "talk.kst"
    house.good("export", file, talk, "--project", "Talks")
    pages = json.loads(decrypted(file.read_bytes()))
    assert len(pages) == 2 and pages[1]["hits"]["hits"] == [], "a page more, without documents"
    assert "Carl" not in json.dumps(pages), "who does not speak in the clips is not named"

    assert other.good("import", file, "--json", "--dry-run").json()["speakers"] == ["Anna", "Ben"]
    assert names(other) == ["Ben"], "a dry run names nobody"
    other.good("import", file)
    assert speaking() == ["Anna", "Ben", "", "Ben", "", "Anna"] and names(other) == ["Anna", "Ben"], "one Ben"
    other.good("speakers", "rename", "Anna", "Hannah", "--project", "Talks")
    other.good("import", file)
    assert speaking() == ["Hannah", "Ben", "", "Ben", "", "Hannah"] and names(other) == ["Ben", "Hannah"]

    other.good("delete", "--whole-project", "--project", "Talks", "--yes")
    other.good("import", file, "--project", "Elsewhere")
    assert speaking() == ["Anna", "Ben", "", "Ben", "", "Anna"]


def test_an_unfinished_transcript_gives_way(house: Kestrel, exchange_file: Path, other: Kestrel) -> None:
    put(other, StoredClip("river 0.mov", "Rivers", [Line("half a", 0), Line("transcript", 900)], complete=False))
    clip = StoredClip("river 0.mov", "Rivers", []).id
    other.index("POST", f"{TRANSCRIPTS}/_doc/{clip}?op_type=create", {"KSNNlock": True})
    assert "is being transcribed here" in other.fails("import", exchange_file, "--project", "Rivers")
    assert len(documents(other)) == 2
    other.index("DELETE", f"{TRANSCRIPTS}/_doc/{clip}")
    assert "never completed" in other.good("import", exchange_file, "--project", "Rivers").err
    assert documents(other) == rivers(house)


def test_a_file_that_is_wrong_changes_nothing(house: Kestrel, exchange_file: Path, tmp_path: Path) -> None:
    before = documents(house)
    text = exchange_file.read_bytes()
    (page,) = json.loads(decrypted(text))
    last = page["hits"]["hits"][-1]["_source"]
    wrong = {
        "empty": (b"", "another pass phrase"),
        "truncated": (text[: len(text) // 2], "truncated or damaged"),
        "altered": (text[:999] + (b"A" if text[999:1000] != b"A" else b"B") + text[1000:], "damaged"),
        "foreign": (b"%PDF-1.7 or something of the sort", "no exchange file"),
        "wrongly keyed": (encrypted(decrypted(text), "another"), "another pass phrase"),
        "no clip": (encrypted(b'[{"hits":{"hits":[]}}]'), "holds no clip"),
        "version 1": (encrypted(json.dumps([page]).replace('"schemaVersion": 2', '"schemaVersion": 1').encode()), "schema"),
    }
    last["segment"] = "forty"
    wrong["wrong type"] = (encrypted(json.dumps([page]).encode()), '"segment" of a document is "forty"')
    for name, (content, message) in wrong.items():
        file = tmp_path / f"{name}.kst"
        file.write_bytes(content)
        for dry in ([], ["--dry-run"]):
            said = house.fails("import", file, "--project", "Rivers", *dry)
            assert file.name in said and message in said, (name, said)
    assert documents(house) == before


def test_exports_that_cannot_be(house: Kestrel, exchange_file: Path, tmp_path: Path) -> None:
    file = tmp_path / "x.kst"
    assert "Rivers" in house.fails("export", file, "--project", "Seas")
    put(house, StoredClip("half.mov", "Half", [Line("half", 0)], complete=False))
    house.index("POST", f"{TRANSCRIPTS}/_refresh")
    assert "is not complete" in house.run("export", file, "--project", "Half").err
    without = subprocess.run([BIN / "kestrel", "export", file, "--project", "Rivers"], stdin=subprocess.DEVNULL, text=True,
                             env={**house.environment, "KESTREL_PASS_PHRASE": ""}, capture_output=True)
    assert without.returncode == 1 and "pass phrase" in without.stderr
    assert not file.exists()
    one = StoredClip("river 1.mov", "Rivers", []).id
    assert "40 segments of 1 clips" in house.good("export", file, one, "--project", "Rivers").err

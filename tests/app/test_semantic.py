"""Search by meaning through the application, with the real models."""

from __future__ import annotations

from typing import Any

import pytest
from app_under_test import Kestrel
from stored_clips import Line, StoredClip, put

FRAMES = "semantic_image_search_dbg"
RIVERS = ("--project", "Rivers")
TALK = StoredClip("talk.mov", "Rivers", [
    Line("The ferry leaves at noon.", 0),
    Line("Interest rates rose again.", 5_000, speaker="2"),
    Line("My grandmother baked bread in a wood-fired oven.", 10_000),
])
OTHER = StoredClip("other.mov", "Lakes", [Line("A boat departs in the middle of the day.", 0)])
SHARED = StoredClip("shared.mov", "Rivers", [Line("Nobody wanted to buy the old farm.", 0)])


@pytest.fixture
def indexed(kestrel: Kestrel) -> Kestrel:
    """Two projects, indexed by meaning."""
    for project in ("Rivers", "Lakes"):
        kestrel.run("delete", "--whole-project", "--project", project, "--yes")
    if FRAMES in kestrel.index("GET", "*"):
        kestrel.index("DELETE", FRAMES)
    put(kestrel, TALK, OTHER, SHARED)
    kestrel.good("join", "shared.mov", "--project", "Lakes")
    kestrel.good("semantic", "index", "--project", "Lakes")
    assert kestrel.good("semantic", "index", *RIVERS, "--json").json() == {"project": "Rivers", "clips": 2, "segments": 3}
    return kestrel


def texts(kestrel: Kestrel, query: str, *arguments: object) -> list[str]:
    hits = kestrel.good("semantic", query, *RIVERS, "--json", *arguments).json()["hits"]
    return [hit["text"] for hit in hits]


def frames(kestrel: Kestrel, clip: StoredClip) -> int:
    kestrel.index("POST", f"{FRAMES}/_refresh")
    return int(kestrel.index("GET", f"{FRAMES}/_count", {"query": {"term": {"mediaGuid.keyword": clip.id}}})["count"])


def write_picture(kestrel: Kestrel, clip: StoredClip, dimension: int = 512) -> None:
    """A frame as another program writes it."""
    kestrel.index("POST", f"{FRAMES}/_doc?refresh=true", {
        "mediaGuid": clip.id, "fileName": clip.name, "projectName": clip.project, "framePositionMS": 1_240,
        "imageDescription": "a boat at a quay", "semanticImageVector": [0.5] * dimension,
    })


def test_what_was_meant_is_found_in_another_language(indexed: Kestrel) -> None:
    assert texts(indexed, "Wann fährt das Schiff ab?", "--max", 1) == [TALK.lines[0].text], "that of the other project is nearer"
    (hit,) = indexed.good("semantic", "pain fait maison par ma grand-mère", *RIVERS, "--max", 1, "--json").json()["hits"]
    described = {key: hit[key] for key in ("clipName", "segment", "speaker", "startMS", "endMS", "match")}
    assert described == {"clipName": "talk.mov", "segment": 2, "speaker": "1", "startMS": 10_000, "endMS": 12_400, "match": ""}
    printed = indexed.good("semantic", "tipos de interés", *RIVERS, "--max", 1).out
    assert printed.startswith("talk.mov  00:00:05.000 - 00:00:06.200  speaker 2  ") and "Interest rates rose again." in printed
    assert indexed.good("semantic", "index", *RIVERS, "--json").json()["segments"] == 0, "all are known"


def test_search_mixes_words_and_meaning(indexed: Kestrel) -> None:
    hits = indexed.good("search", "fery leaves", "--meaning", *RIVERS, "--json").json()["hits"]
    assert hits[0]["text"] == TALK.lines[0].text and hits[0]["match"] == "ferry leaves"
    assert sorted(hit["text"] for hit in hits) == sorted(line.text for line in TALK.lines + SHARED.lines)
    assert indexed.good("search", "bateau", *RIVERS, "--json").json()["hits"] == []
    assert indexed.good("search", "bateau", "--meaning", *RIVERS, "--json").json()["hits"][0]["segment"] == 0


def test_frames_of_another_program_are_found(indexed: Kestrel) -> None:
    write_picture(indexed, TALK)
    write_picture(indexed, OTHER)
    hits = indexed.good("semantic", "boat", *RIVERS, "--json").json()["hits"]
    (picture,) = [hit for hit in hits if hit["text"] == "a boat at a quay"]
    assert (picture["clipName"], picture["startMS"], picture["segment"]) == ("talk.mov", 1_240, -1)
    assert "talk.mov  00:00:01.240  " in indexed.good("semantic", "boat", *RIVERS).out


def test_what_is_deleted_is_forgotten(indexed: Kestrel) -> None:
    write_picture(indexed, TALK)
    indexed.good("delete", "talk.mov", *RIVERS, "--yes")
    assert frames(indexed, TALK) == 1, "the picture is not ours"
    put(indexed, TALK)
    assert TALK.lines[0].text not in texts(indexed, "ferry")
    assert indexed.good("semantic", "index", *RIVERS, "--json").json()["segments"] == 3
    assert texts(indexed, "ferry")[0] == TALK.lines[0].text

    indexed.good("delete", "shared.mov", *RIVERS, "--yes")
    assert frames(indexed, SHARED) == 1, "another project has it"
    indexed.good("delete", "--whole-project", "--project", "Lakes", "--yes")
    assert frames(indexed, SHARED) == frames(indexed, OTHER) == 0
    indexed.good("delete", "talk.mov", "--everywhere", "--yes")
    assert frames(indexed, TALK) == 1


@pytest.mark.parametrize("vectors", ["of another dimension", "none"])
def test_an_index_that_cannot_be_searched_is_named(indexed: Kestrel, vectors: str) -> None:
    indexed.index("DELETE", FRAMES)
    nothing = indexed.good("semantic", "ferry", *RIVERS)
    assert nothing.out == "" and "kestrel semantic index" in nothing.err
    frame: dict[str, Any] = {"mediaGuid": TALK.id}
    if vectors == "none":
        indexed.index("POST", f"{FRAMES}/_doc?refresh=true", frame)
    else:
        mapping = {"mappings": {"properties": {"semanticImageVector": {"type": "dense_vector", "dims": 3}}}}
        indexed.index("PUT", FRAMES, mapping)
        write_picture(indexed, TALK, 3)
    assert "the search by meaning failed" in indexed.fails("semantic", "ferry", *RIVERS)

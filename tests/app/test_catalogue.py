"""What a team does with transcripts that exist: projects, listings, speakers, deletion, locks, old stores."""

from __future__ import annotations

import os
import pty
import re
import signal
import subprocess
from collections.abc import Iterable
from typing import Any

import pytest
from app_under_test import BIN, TRANSCRIPTS, Kestrel
from stored_clips import Line, StoredClip, project_id, put, store

OLD_INDEX = "transcript_index_rel"


def clip(name: str, *projects: str, complete: bool = True, language: str = "en") -> StoredClip:
    """A clip of three segments, as another host writes it."""
    lines = [Line("the old bridge is gone", 0, 450, "1", language), Line("who took it", 10_000, 450, "2", language),
             Line("nobody knows", 20_000, 450, "1", language)]
    return StoredClip(name, projects[0], lines, complete=complete, others=projects[1:])


def clip_id(name: str) -> str:
    return StoredClip(name, "", []).id


@pytest.fixture
def team(kestrel: Kestrel) -> Kestrel:
    """A store with an index and nothing in it."""
    kestrel.good("unlock", "--all", "--yes")
    kestrel.index("POST", f"{TRANSCRIPTS}/_delete_by_query?refresh=true", {"query": {"match_all": {}}})
    return kestrel


def listed(kestrel: Kestrel, *arguments: object) -> list[Any]:
    return list(kestrel.good("clips", *arguments, "--json").json()["clips"])


def names(clips: Iterable[Any]) -> list[str]:
    return [clip["clipName"] for clip in clips]


def test_projects_share_clips(team: Kestrel) -> None:
    put(team, clip("a.mov", "Rivers"), clip("b.mov", "Rivers", language="fr"), clip("c.mov", "Bridges", complete=False))

    assert "a.mov is now in project" in team.good("join", "a.mov", "--project", "Bridges").err
    assert team.good("join", "a.mov", "--project", "Bridges", "--json").json()["clips"][0]["joined"] is False
    assert "not complete" in team.fails("join", clip_id("c.mov"), "--project", "Rivers")

    counted = team.good("projects", "--count", "--json").json()["projects"]
    assert [(row["project"], row["clips"]) for row in counted] == [("Bridges", 1), ("Rivers", 2)]
    assert team.good("projects").out.splitlines()[1].split("  ") == [project_id("Rivers"), "Rivers"]

    assert names(listed(team)) == ["a.mov", "b.mov", "c.mov"]
    assert names(listed(team, "--project", "Bridges")) == ["a.mov", "c.mov"]
    assert names(listed(team, "--language", "fr")) == ["b.mov"]
    assert names(listed(team, "--unfinished")) == names(listed(team, "--name", "C.m")) == ["c.mov"]
    (shared,) = listed(team, "--name", "a.m")
    assert sorted(shared["projects"]) == ["Bridges", "Rivers"]
    assert (shared["state"], shared["segments"], shared["endMS"]) == ("complete", 3, 20_900)
    assert shared["speakers"] == ["Speaker 1", "Speaker 2"]
    assert re.search(r"^\w{12}  unfinished  00:00:20.900  en     c.mov", team.good("clips").out, re.MULTILINE)

    hits = team.good("search", "old brige", "--project", "Bridges", "--json").json()["hits"]
    hits.sort(key=lambda hit: str(hit["clipName"]))  # both fit equally well
    assert names(hits) == ["a.mov", "c.mov"]
    assert team.good("show", hits[0]["clipName"], "--json").json()["clip"] == clip_id("a.mov")

    team.good("leave", "a.mov", "--project", "Rivers")
    assert names(listed(team, "--project", "Rivers")) == ["b.mov"]
    assert "kestrel delete" in team.fails("leave", "b.mov", "--project", "Rivers")
    assert "Bridges" in team.fails("clips", "--project", "Lakes")


def test_speakers_are_named_merged_and_cleared(team: Kestrel) -> None:
    put(team, clip("a.mov", "Rivers"), clip("b.mov", "Rivers"))
    project = ("--project", "Rivers")

    def speakers() -> list[tuple[str, bool]]:
        rows = team.good("speakers", "list", *project, "--json").json()["speakers"]
        return [(row["speaker"], row["assigned"]) for row in rows]

    def spoken(clip: str) -> list[str]:
        return [part["speakerName"] for part in team.good("show", clip, "--json").json()["segments"]]

    for name in ("Anna", "Ana", "Ben"):
        team.good("speakers", "create", name, *project)
    assert "already" in team.run("speakers", "create", "Anna", *project).err
    team.good("speakers", "assign", "Anna", "a.mov", "--label", "1", *project)
    team.good("speakers", "assign", "Ana", "b.mov", "--label", "1", *project)
    team.good("speakers", "assign", "Ben", "a.mov", "--segment", 1, *project)
    assert spoken("a.mov") == ["Anna", "Ben", "Anna"] and spoken("b.mov") == ["Ana", "", "Ana"]
    assert "there are: 1, 2" in team.fails("speakers", "assign", "Anna", "a.mov", "--label", "7", *project)
    assert names(listed(team, "--speaker", "Ana")) == ["b.mov"]
    assert "\nAnna\n00:00:00.000  the old bridge is gone" in team.good("show", "a.mov").out

    refused = team.run("speakers", "merge", "Ana", "Anna", *project)
    assert refused.code == 2 and "--yes" in refused.err and ("Ana", True) in speakers()
    team.good("speakers", "merge", "Ana", "Anna", *project, "--yes")
    assert speakers() == [("Anna", True), ("Ben", True)] and spoken("b.mov") == ["Anna", "", "Anna"]

    team.good("speakers", "rename", "Anna", "Hannah", *project)
    assert spoken("a.mov") == ["Hannah", "Ben", "Hannah"]
    team.good("speakers", "clear", "Hannah", "--clip", "b.mov", *project, "--yes")
    assert spoken("b.mov") == ["", "", ""]
    assert "speakers clear" in team.fails("speakers", "delete", "Ben", *project, "--yes")
    team.good("speakers", "clear", "Ben", *project, "--yes")
    team.good("speakers", "delete", "Ben", *project, "--yes")
    assert speakers() == [("Hannah", True)]


def test_deletion_spares_other_projects_and_asks(team: Kestrel) -> None:
    put(team, clip("a.mov", "Rivers", "Bridges"), clip("b.mov", "Rivers"))
    assert "--yes" in team.fails("delete", "b.mov", "--project", "Rivers", code=2)
    assert answered(team, "n", "delete", "b.mov", "--project", "Rivers") == 1
    assert names(listed(team)) == ["a.mov", "b.mov"]
    assert answered(team, "y", "delete", "b.mov", "--project", "Rivers") == 0
    assert names(listed(team)) == ["a.mov"]

    both = team.good("delete", "a.mov", "--project", "Rivers", "--yes", "--json").json()["clips"]
    assert [clip["deleted"] for clip in both] == [False]
    assert names(listed(team, "--project", "Bridges")) == ["a.mov"]
    team.good("delete", "a.mov", "--everywhere", "--yes")
    assert listed(team) == []

    put(team, clip("c.mov", "Rivers", "Bridges"), clip("d.mov", "Rivers"))
    team.good("speakers", "create", "Zoe", "--project", "Rivers")
    team.good("delete", "--whole-project", "--project", "Rivers", "--yes")
    assert [clip["projects"] for clip in listed(team)] == [["Bridges"]]


def answered(kestrel: Kestrel, answer: str, *arguments: str) -> int:
    """Runs a command at a terminal and answers its question; returns the exit code."""
    ours, theirs = pty.openpty()
    process = subprocess.Popen(
        [BIN / "kestrel", *arguments], stdin=theirs, stdout=theirs, stderr=theirs, env=kestrel.environment
    )
    os.close(theirs)
    said = b""
    while b"[y/N]" not in said:
        said += os.read(ours, 1000)
    os.write(ours, f"{answer}\n".encode())
    code = process.wait(timeout=60)
    os.close(ours)
    return code


def test_more_than_a_page_of_clips(team: Kestrel) -> None:
    clips = [f"clip {number:03}.mov" for number in range(260)]
    put(team, *(clip(name, "Rivers") for name in clips))
    late = clip("late.mov", "Rivers", language="fr").documents()
    late[2]["wordStartsMS"] = late[2]["wordEndsMS"] = []  # the last word is in the segment before
    store(team, TRANSCRIPTS, late)
    every = listed(team)
    assert names(every) == [*clips, "late.mov"]
    assert {(row["segments"], row["endMS"]) for row in every[:-1]} == {(3, 20_900)}
    assert (every[-1]["endMS"], every[-1]["languages"]) == (11_350, ["fr"])

    assert team.good("join", "--all", "--from", "Rivers", "--project", "Bridges").err.count(" is now in project") == 261
    counted = team.good("projects", "--count", "--json").json()["projects"]
    assert [row["clips"] for row in counted] == [261, 261]
    team.good("delete", "--whole-project", "--project", "Rivers", "--yes")
    assert {tuple(row["projects"]) for row in listed(team)} == {("Bridges",)}
    assert team.good("show", "clip 259.mov", "--json").json()["clip"] == clip_id("clip 259.mov")


def test_more_than_a_page_of_locks_and_unfinished_clips(team: Kestrel) -> None:
    unfinished = [f"clip {number:02}.mov" for number in range(23)]
    put(team, *(clip(name, "Rivers", complete=False) for name in unfinished), clip("whole.mov", "Rivers"))
    kept = unfinished[0]
    team.index("PUT", f"{TRANSCRIPTS}/_doc/{clip_id(kept)}?op_type=create", {"KSNNlock": True})
    assert names(listed(team, "--unfinished")) == unfinished
    assert team.good("delete", "--unfinished", "--yes", "--json").json()["deleted"] == 22
    assert names(listed(team)) == [kept, "whole.mov"]

    for name in unfinished[1:]:
        team.index("PUT", f"{TRANSCRIPTS}/_doc/{clip_id(name)}?op_type=create", {"KSNNlock": True})
    assert team.run("unlock", clip_id(kept)).code == 2
    assert team.good("unlock", clip_id(kept), "--yes", "--json").json()["released"] == [clip_id(kept)]
    assert len(team.good("unlock", "--all", "--yes", "--json").json()["released"]) == 22
    assert "no lock" in team.good("unlock", "--all", "--yes").err


def old_documents(clips: int) -> list[dict[str, Any]]:
    """Clips as an earlier version stored them: once for each of three projects."""
    old = []
    for number in range(clips):
        for project in ("Rivers", "Bridges", "Lakes"):
            for document in clip(f"old {number:02}.mov", project).documents():
                del document["projectGuidList"]
                document["projectGuid"] = project_id(project)
                if document["segment"] == 0:
                    del document["projectList"], document["schemaVersion"]
                    document["project"] = project
                old.append(document)
    return old


def test_a_migration_that_is_cancelled_is_completed_later(fresh: Kestrel) -> None:
    fresh.up()
    store(fresh, OLD_INDEX, old_documents(1000))
    migrating = fresh.start("migrate", "--yes")
    assert migrating.stderr is not None
    while "migrating" not in migrating.stderr.readline():
        assert migrating.poll() is None
    migrating.send_signal(signal.SIGINT)
    assert migrating.wait(timeout=60) == 130
    assert fresh.index("GET", f"{OLD_INDEX}/_count")["count"] == 9000
    assert "kestrel migrate" in fresh.run("clips").err
    assert fresh.good("migrate", "--yes", "--json").json() == {"documents": 9000}
    assert len(listed(fresh, "--project", "Lakes")) == 1000
    assert fresh.index("GET", f"{OLD_INDEX}/_count")["count"] == 0


def test_an_old_store_is_migrated_once_and_never_lost(fresh: Kestrel) -> None:
    fresh.up()
    old = old_documents(40)
    store(fresh, OLD_INDEX, old)
    assert "kestrel migrate" in fresh.fails("clips")
    assert "360 documents" in fresh.fails("migrate", code=2)
    assert fresh.good("migrate", "--yes", "--json").json() == {"documents": 360}
    clips = listed(fresh)
    assert len(clips) == 40
    assert all(sorted(clip["projects"]) == ["Bridges", "Lakes", "Rivers"] for clip in clips)
    assert fresh.good("search", "old brige", "--project", "Lakes").out
    assert "nothing of an earlier version" in fresh.good("migrate").err

    store(fresh, OLD_INDEX, [document | {"mediaGuid": clip_id("late.mov")} for document in old[:3]])
    late = fresh.run("migrate", "--yes")
    assert late.code == 1 and clip_id("late.mov") in late.err
    assert fresh.index("GET", f"{OLD_INDEX}/_count")["count"] == 3

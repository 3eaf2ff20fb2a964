"""Clips put straight into the store, so that what follows needs no recogniser."""

from __future__ import annotations

import hashlib
import json
import sys
import uuid
from collections.abc import Iterable
from dataclasses import dataclass, field
from pathlib import Path
from typing import Any

from app_under_test import TRANSCRIPTS, Kestrel

sys.path.insert(0, str(Path(__file__).resolve().parents[1] / "support"))

from store_mapping import MAPPING


def project_id(name: str) -> str:
    return str(uuid.uuid5(uuid.NAMESPACE_URL, "kestrel:project:" + name))


@dataclass(frozen=True)
class Line:
    """What one speaker says in one go."""

    text: str
    start_ms: int
    word_ms: int = 300
    speaker: str = "1"
    language: str = "en"
    words: int = 0  # as the engine counted them; 0: parted by white space


@dataclass
class StoredClip:
    name: str
    project: str
    lines: list[Line]
    path: Path | None = None
    complete: bool = True
    extra: dict[str, Any] = field(default_factory=dict)
    others: tuple[str, ...] = ()  # projects that have it too

    @property
    def id(self) -> str:
        return hashlib.sha256(f"{self.path}{self.name}".encode()).hexdigest()

    def documents(self) -> list[dict[str, Any]]:
        result = []
        projects = [self.project, *self.others]
        for number, line in enumerate(self.lines):
            starts = [line.start_ms + i * line.word_ms for i in range(line.words or len(line.text.split()))]
            document: dict[str, Any] = {
                "segment": number,
                "mediaGuid": self.id,
                "projectGuidList": [project_id(name) for name in projects],
                "transcript": line.text,
                "wordStartsMS": starts,
                "wordEndsMS": [start + line.word_ms for start in starts],
                "language": line.language,
                "speakerID": line.speaker,
            }
            if number == 0:
                document |= {
                    "projectList": [{"projectGuid": project_id(name), "projectName": name} for name in projects],
                    "model": "by hand",
                    "clipName": self.name,
                    "audioTracks": "1",
                    "progressComplete": self.complete,
                    "clientApp": "tests",
                    "schemaVersion": 2,
                }
            result.append(document | self.extra)
        return result


def store(kestrel: Kestrel, index: str, made: Iterable[dict[str, Any]]) -> None:
    lines = [line for document in made for line in ('{"create":{}}', json.dumps(document))]
    answer = kestrel.index("PUT", f"{index}/_bulk?refresh=true", "\n".join(lines) + "\n")
    assert answer["errors"] is False


def put(kestrel: Kestrel, *clips: StoredClip) -> None:
    """Writes clips into the store, and into the catalogue if they have a file."""
    if TRANSCRIPTS not in kestrel.index("GET", "*"):
        kestrel.index("PUT", TRANSCRIPTS, MAPPING)
    store(kestrel, TRANSCRIPTS, (document for clip in clips for document in clip.documents()))
    listed = [{"clip": clip.id, "name": clip.name, "path": str(clip.path), "project": clip.project, "language": "en"}
              for clip in clips if clip.path is not None]
    if listed:
        catalogue = kestrel.home / "catalogue.json"
        before = json.loads(catalogue.read_text())["clips"] if catalogue.exists() else []
        catalogue.write_text(json.dumps({"clips": before + listed}))


def documents(kestrel: Kestrel) -> list[dict[str, Any]]:
    """All transcript documents of the store, in order of clip and segment."""
    kestrel.index("POST", f"{TRANSCRIPTS}/_refresh")
    query = {"query": {"exists": {"field": "mediaGuid"}}, "size": 10000}
    hits = kestrel.index("POST", f"{TRANSCRIPTS}/_search", query)["hits"]["hits"]
    return sorted((hit["_source"] for hit in hits), key=lambda document: (document["mediaGuid"], document["segment"]))

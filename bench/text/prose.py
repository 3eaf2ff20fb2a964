"""Running prose that every Python brings along, and what becomes of it when it is spoken or mistyped."""

from __future__ import annotations

import json
import os
import random
import re
import subprocess
from pathlib import Path
from pydoc_data.topics import topics
from typing import Any

TIMER = Path(os.environ.get("KESTREL_BUILD_BIN", Path(__file__).parents[2] / "build" / "bin")) / "kestrel_text_bench"


def sentences() -> list[str]:
    """Sentences of Python's language reference, each once, without what is no prose."""
    found: dict[str, None] = {}
    for name in sorted(topics):
        for paragraph in re.split(r"\n\s*\n", topics[name]):
            text = re.sub(r"\s+", " ", re.sub(r"[*`\[\]|_]", "", paragraph)).strip()
            for sentence in re.findall(r"[A-Z][^.!?]*[.!?](?=\s|$)", text):
                if 5 <= len(sentence.split()) <= 40 and not re.search(r"[^ -~]|>>>|[=<>{}]", sentence):
                    found[sentence] = None
    return list(found)


def prose(length: int) -> str:
    text = " ".join(sentences())
    if len(text) < length:
        raise ValueError(f"only {len(text)} characters of prose")
    return text[:length]


def noisy(text: str, percent: int, seed: int) -> str:
    rng = random.Random(seed)

    def damaged(character: str) -> str:
        if rng.randrange(100) >= percent:
            return character
        letter = rng.choice("abcdefghijklmnopqrstuvwxyz ")
        return rng.choice(["", letter, character + letter])

    return "".join(damaged(character) for character in text)


def timed(folder: Path, command: str, *texts: str, options: tuple[str, ...] = ()) -> Any:
    """Runs the timer on texts, which it gets as files."""
    paths = []
    for number, text in enumerate(texts):
        paths.append(folder / f"text{number}")
        paths[-1].write_text(text, "utf-8")
    result = subprocess.run([TIMER, command, *paths, *options], capture_output=True, check=True)
    return json.loads(result.stdout)

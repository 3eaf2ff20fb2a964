"""Finds the recogniser's model."""

from __future__ import annotations

from pathlib import Path
from typing import Optional

PREFERRED_FOLDER = "whisper-base"
# Without the tokenizer the recogniser would try to download one.
REQUIRED_FILES = ("model.bin", "config.json", "tokenizer.json")


def missing_files(folder: Path) -> list[str]:
    """The required files that a folder lacks."""
    return [name for name in REQUIRED_FILES if not (folder / name).is_file()]


def find_model_folder(model_dir: Optional[str]) -> Path:
    """The folder "whisper-base" in model_dir, else the first by name that holds a CTranslate2 model."""
    if model_dir is None:
        raise ValueError("the speech model directory is not set")
    root = Path(model_dir)
    if not root.is_dir():
        raise FileNotFoundError(f"the speech model directory '{model_dir}' does not exist")
    preferred = root / PREFERRED_FOLDER
    if preferred.is_dir():
        missing = missing_files(preferred)
        if missing:
            raise FileNotFoundError(f"the speech model folder '{preferred}' lacks {', '.join(missing)}")
        return preferred
    for folder in sorted(entry for entry in root.iterdir() if entry.is_dir()):
        if not missing_files(folder):
            return folder
    raise FileNotFoundError(
        f"no speech model in '{model_dir}': expected a folder '{PREFERRED_FOLDER}', or any other, "
        f"with {', '.join(REQUIRED_FILES)}"
    )


def model_size_of(folder: Path) -> str:
    """The size in a folder name such as "whisper-base", else the whole name."""
    for prefix in ("faster-whisper-", "whisper-"):
        if folder.name.startswith(prefix):
            return folder.name[len(prefix) :]
    return folder.name

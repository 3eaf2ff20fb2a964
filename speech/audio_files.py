"""Reading recordings of any kind and writing the one kind that the system works on: 16 kHz, mono, 16 bit."""

from __future__ import annotations

import wave
from pathlib import Path

import av
import numpy as np
import numpy.typing as npt

SAMPLE_RATE = 16000

Samples = npt.NDArray[np.int16]

_HEADERLESS = {".g722": "g722", ".gsm": "gsm"}


def read(path: Path) -> Samples:
    resampler = av.AudioResampler(format="s16", layout="mono", rate=SAMPLE_RATE)
    pieces: list[Samples] = []
    with av.open(str(path), format=_HEADERLESS.get(path.suffix)) as container:
        for frame in [*container.decode(audio=0), None]:
            pieces += [resampled.to_ndarray()[0].astype(np.int16) for resampled in resampler.resample(frame)]
    return np.concatenate(pieces)


def write_wav(path: Path, samples: Samples) -> None:
    path.parent.mkdir(parents=True, exist_ok=True)
    with wave.open(str(path), "wb") as file:
        file.setnchannels(1)
        file.setsampwidth(2)
        file.setframerate(SAMPLE_RATE)
        file.writeframes(samples.astype("<i2").tobytes())


def read_wav(path: Path) -> Samples:
    with wave.open(str(path), "rb") as file:
        return np.frombuffer(file.readframes(file.getnframes()), "<i2")


def trimmed(samples: Samples, below_peak_db: float = 40.0, frame: int = 160) -> Samples:
    """Without the silence at both ends."""
    frames = samples[: len(samples) // frame * frame].reshape(-1, frame).astype(np.float64)
    level = np.sqrt(np.mean(frames**2, axis=1))
    loud = np.flatnonzero(level > level.max() * 10 ** (-below_peak_db / 20)) if len(level) else np.array([])
    return samples[loud[0] * frame : (loud[-1] + 1) * frame] if len(loud) else samples[:0]

"""Speaker diarization of real recordings with the real model."""

from __future__ import annotations

import json
from pathlib import Path
from typing import Any

import numpy as np
import pytest
from conftest import DEPS, RATE, recording
from diarize import clustering, make_rttm, utils
from faster_whisper import vad


@pytest.fixture(scope="module")
def session() -> Any:
    return clustering.init_session(DEPS / "models" / "diarize" / "KestrelDiarize.onnx", "cpu")


def audio_of(name: str) -> Any:
    return recording(name).astype(np.float32) / 32768


def turns_of(audio: Any, session: Any, most: int) -> list[make_rttm.Turn]:
    vad_range, segments = utils.process_vadsegments(vad.get_speech_timestamps(audio), RATE)
    windows, vectors = clustering.compute_embeddings(audio, segments, vad_range, session)
    labels = clustering.cluster(vectors, 0.01, max_num_spks=most)
    return make_rttm.merge_segments(make_rttm.read_labels(windows, labels))


def test_conversation_has_its_two_speakers(session: Any) -> None:
    manifest = json.loads((DEPS / "speech" / "manifest.json").read_text())
    truth = manifest["files"]["conversation_en.wav"]["turns"]
    audio = audio_of("conversation_en.wav")
    turns = turns_of(audio, session, most=len(truth))
    assert turns == turns_of(audio, session, most=len(truth))
    segments = [{"words": [{"startMs": 1000 * turn["begin"], "endMs": 1000 * turn["end"]}]} for turn in truth]
    make_rttm.merge_outputs(turns, segments, True)
    names = {"allison": "1", "librivox": "2"}
    assert [segment["speakerID"] for segment in segments] == [names[turn["speaker"]] for turn in truth]


def by_telephone(audio: Any) -> Any:
    """The band that a telephone line leaves."""
    spectrum = np.fft.rfft(audio)
    hertz = np.fft.rfftfreq(len(audio), 1 / RATE)
    spectrum[(hertz < 300) | (hertz > 3400)] = 0
    return np.fft.irfft(spectrum, len(audio)).astype(np.float32)


def test_voices_by_telephone_are_told_apart(session: Any) -> None:
    audio = audio_of("conversation_en.wav")
    assert {label for _, _, label in turns_of(by_telephone(audio), session, most=20)} == {0, 1}


@pytest.mark.parametrize("line", [lambda audio: audio, by_telephone], ids=["studio", "telephone"])
@pytest.mark.parametrize("name", ["english_long.wav", "italian.wav", "russian.wav"])
def test_one_voice_is_one_speaker(session: Any, name: str, line: Any) -> None:
    assert {label for _, _, label in turns_of(line(audio_of(name)), session, most=20)} == {0}


def test_windows_and_vectors(session: Any) -> None:
    audio = audio_of("english_long.wav")
    windows, vectors = clustering.compute_embeddings(audio, [(1.0, 30.0), (30.0, 30.6)], (1.0, 30.6), session)
    assert vectors.shape == (len(windows), 192)
    lengths = np.array([end - begin for begin, end in windows])
    assert all(0 < length <= 1.5 + 1e-6 for length in lengths)
    assert np.allclose(np.linalg.norm(vectors, axis=1), lengths / 1.5, atol=1e-3)
    alone = clustering.compute_embeddings(audio, [(1.0, 30.0), (30.0, 30.6)], (1.0, 30.6), session, batch_size=1)
    assert alone[0] == windows
    assert np.all(np.sum(alone[1] * vectors, axis=1) > 0.7 * np.square(lengths / 1.5))


@pytest.mark.parametrize("audio", [np.zeros(RATE, np.float32), np.zeros(1000, np.float32), np.zeros(0, np.float32)])
def test_silence_and_scraps_pass(session: Any, audio: Any) -> None:
    end = len(audio) / RATE
    windows, vectors = clustering.compute_embeddings(audio, [(0.0, end)] if end else [], (0.0, end), session)
    assert len(windows) == len(vectors) == len(clustering.cluster(vectors, 0.01, max_num_spks=3)) == 0
    scrap = np.random.default_rng(0).standard_normal(3200).astype(np.float32) * 0.1
    windows, vectors = clustering.compute_embeddings(scrap, [(0.0, 0.2)], (0.0, 0.2), session)
    assert np.isfinite(vectors).all() and len(windows) == 1


def test_bad_models_are_named(tmp_path: Path) -> None:
    with pytest.raises(FileNotFoundError, match="nowhere.onnx"):
        clustering.init_session(tmp_path / "nowhere.onnx", "cpu")
    with pytest.raises(ValueError, match="cuda"):
        clustering.init_session(tmp_path / "nowhere.onnx", "cuda")

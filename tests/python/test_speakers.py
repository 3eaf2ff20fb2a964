"""How the module asks the diarization package for speakers."""

from __future__ import annotations

import os
from typing import Any

import pytest

SPANS = [{"start": 0, "end": 32000}]


@pytest.fixture
def calls(module: Any, monkeypatch: pytest.MonkeyPatch) -> list[tuple[str, Any]]:
    """Replaces the package's functions; what they are given is kept in order."""
    kept: list[tuple[str, Any]] = []

    def stand_in(name: str, result: Any) -> None:
        monkeypatch.setattr(module, name, lambda *args, **named: kept.append((name, (args, named))) or result)

    stand_in("init_session", "session")
    stand_in("process_vadsegments", ("range", "segments"))
    stand_in("compute_embeddings", ("subsegments", "embeddings"))
    stand_in("cluster", "labels")
    stand_in("read_labels", "labelled")
    stand_in("merge_segments", [(1.5, 4.25, 0)])
    stand_in("merge_outputs", ("merged", True))
    module.set_stt_model_dir_func({"modelDir": "models"})
    return kept


@pytest.mark.parametrize("count", [0, 1])
def test_one_segment_needs_no_search(module: Any, calls: list[Any], count: int) -> None:
    for _ in range(2):
        module.inject_speaker_id("audio", SPANS, [{"text": "a"}] * count)
    path = os.path.join("models", "diarize", "KestrelDiarize.onnx")
    assert calls == [("init_session", ((path, "cpu"), {}))]


@pytest.mark.parametrize("given, used", [((0.2,), 0.2), ((), 0.01)])
def test_order_and_arguments(module: Any, calls: list[Any], given: tuple[float, ...], used: float) -> None:
    segments = [{"text": "a"}, {"text": "b"}]
    module.inject_speaker_id("audio", SPANS, segments, *given)
    windows = {"batch_size": 32, "sampling_rate": 16000, "window_secs": 1.5, "period_secs": 0.75, "frame_shift": 10}
    assert calls[1:] == [
        ("process_vadsegments", ((SPANS, 16000), {})),
        ("compute_embeddings", (("audio", "segments", "range", "session"), windows)),
        ("cluster", (("embeddings", used), {"max_num_spks": 2})),
        ("read_labels", (("subsegments", "labels"), {})),
        ("merge_segments", (("labelled",), {})),
        ("merge_outputs", (([(1.5, 4.25, 0)], segments, True), {})),
    ]


def test_a_session_that_could_not_be_made_is_tried_again(module: Any, calls: list[Any]) -> None:
    def missing(path: str, device: str) -> Any:
        raise FileNotFoundError(path)

    working, module.init_session = module.init_session, missing
    with pytest.raises(FileNotFoundError):
        module.inject_speaker_id("audio", SPANS, [])
    module.init_session = working
    module.inject_speaker_id("audio", SPANS, [])
    assert module.diar_session == "session"


def test_debug_lines(module: Any, calls: list[Any], capsys: pytest.CaptureFixture[str]) -> None:
    result = module.set_speaker_id([{}, {}], "audio", SPANS, "session", success=True, debug=True)
    assert result == ("merged", True)
    assert capsys.readouterr().out == "SPEAKER 1.500 2.750 <NA> <NA> 0 <NA> <NA>\n"

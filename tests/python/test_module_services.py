"""The service functions: status, languages, buffered audio, and runs with a scripted recogniser."""

from __future__ import annotations

import ctypes
import json
import threading
from array import array
from collections.abc import Iterator
from pathlib import Path
from types import SimpleNamespace
from typing import Any

import numpy as np
import pytest
from conftest import Segment, Word, fresh_module, segments_of

SPEECH = [{"start": 16000, "end": 48000}, {"start": 64000, "end": 80000}]


class ScriptedRecogniser:
    """Yields the given segments for every span and keeps what it was asked."""

    model_pkg, model_size, model_device = "scripted", "tiny", "cpu"

    def __init__(self, *segments: Segment) -> None:
        self.segments = segments or (Segment(0.0, 1.0, " Hi.", [Word(0.0625, 0.1875, " Hi.")]),)
        self.spans: list[Any] = []
        self.languages: list[Any] = []
        self.progress_seen: list[float] = []

    def transcribe(self, samples: Any, selected_language: Any) -> tuple[Iterator[Segment], list[str]]:
        self.spans.append(samples)
        self.languages.append(selected_language)
        return self.produce(), [selected_language or "fr"]

    def produce(self) -> Iterator[Segment]:
        yield from self.segments


@pytest.fixture
def ready(module: Any, monkeypatch: pytest.MonkeyPatch) -> Any:
    """A module with languages, a scripted recogniser and scripted voice detection, without speaker search."""
    module.languageDict = {"en": {"language": "English", "local": "English"}}
    module.doSpeakerID = False
    module.override_transcriber(ScriptedRecogniser())
    monkeypatch.setattr(module, "vad", SimpleNamespace(get_speech_timestamps=lambda audio: SPEECH))
    return module


def upload(module: Any, start: int = 0, count: int = 96000, project: str = "P", value: int = 0, **more: Any) -> Any:
    samples = np.full(count, value, dtype=np.int16)
    params = {"start_sample": start, "end_sample": start + count, "mediaGuid": "M", "projectGuid": project}
    return module.stt_upload_audio_func({**params, "audioSamples": samples, **more})


def finalize(module: Any, **changes: Any) -> Any:
    params = {"total_samples": 96000, "mediaGuid": "M", "projectGuid": "P", "audioTracks": "1,2", "langCode": "en"}
    return module.stt_finalize_func({**params, **changes})


def test_import_says_that_there_is_no_host(capsys: pytest.CaptureFixture[str]) -> None:
    module: Any = fresh_module()
    printed = capsys.readouterr().out.splitlines()
    assert module.whisper_share is None and module.whisper_share_lib_name == "libkestrelml.so"
    assert len(printed) == 2 and "libkestrelml.so" in printed[0] and printed[1] == "Using REST interface"
    assert module.stt_progress_func({}) == {"success": True, "progress": 0.0}
    assert module.PostProcessingOptions() == (True, True, True)


def test_status_with_a_host(module: Any) -> None:
    seen: list[ctypes.c_float] = []
    module.whisper_share = SimpleNamespace(Get_TranscribeCancel=lambda: True, Set_TranscribeProgress=seen.append)
    module.SetProgress(0.1)
    assert module.GetCancel() is True and module.cancel is False
    assert isinstance(seen[0], ctypes.c_float) and module.progress == 0.0


def test_languages_are_read_once(module: Any, tmp_path: Path) -> None:
    with pytest.raises(RuntimeError, match="not set"):
        module.stt_getSupportedLanguages_func()
    assert module.set_stt_model_dir_func({"modelDir": str(tmp_path)}) == {"modelDir": str(tmp_path), "success": True}
    with pytest.raises(FileNotFoundError):
        module.getLanguageDict()
    (tmp_path / "Languages.json").write_text("{")
    with pytest.raises(ValueError, match="Languages.json' cannot be read"):
        module.getLanguageDict()
    languages = {"yue": {"language": "Cantonese", "local": "粵語"}}
    (tmp_path / "Languages.json").write_text(json.dumps(languages, ensure_ascii=False), encoding="UTF-8")
    assert module.stt_getSupportedLanguages_func() == {"success": True, "languages": languages}
    (tmp_path / "Languages.json").write_text("{")
    assert module.getLanguageDict() is module.getLanguageDict() and module.getLanguageDict() == languages


@pytest.mark.parametrize("flag", [True, False])
def test_upload(module: Any, flag: bool) -> None:
    module.stt_cancel_func({})
    module.SetProgress(0.5)
    answer = upload(module, start=16000, count=2, value=-16384)
    assert answer == {
        "start_sample": 16000, "end_sample": 16002, "projectGuid": "P", "mediaGuid": "M", "success": True
    }  # fmt: skip
    assert (module.cancel, module.progress) == (False, 0.0)
    text = module.array_to_base64(array("h", [16384, 8192]))
    upload(module, start=0, count=2, audioSamples=text, encodedData=flag)
    assert list(module.dataset["P"]["M"]) == ["16000_16002", "0_2"]
    audio = module.retrieve_audio("M", "P")
    assert audio.dtype == np.float32 and audio.tolist() == [-0.5, -0.5, 0.5, 0.25]
    upload(module, start=16000, count=2, value=0)
    assert module.retrieve_audio("M", "P").tolist() == [0, 0, 0.5, 0.25]


def test_removal_leaves_other_clips(module: Any) -> None:
    upload(module, count=1)
    upload(module, count=1, mediaGuid="N")
    module.cleanUpMemory("P", "M")
    assert list(module.dataset["P"]) == ["N"]
    module.cleanUpMemory("P", "unknown")
    module.cleanUpMemory("P", "N")
    module.cleanUpMemory("unknown", "N")
    assert module.dataset == {}


def test_finalize(ready: Any) -> None:
    upload(ready)
    answer = finalize(ready)
    assert (answer["total_samples"], answer["audioTracks"]) == (96000, "1,2")
    assert (answer["model"], answer["device"], answer["cancel"]) == ("scripted-tiny", "cpu", False)
    # Half milliseconds go to the even neighbour: 1062.5 and 1187.5.
    text = {"transcript": "Hi.", "language": "en", "speakerID": "1"}
    assert answer["transcriptSegments"] == [
        {**text, "segment": 0, "wordStartsMS": [1062], "wordEndsMS": [1188]},
        {**text, "segment": 1, "wordStartsMS": [4062], "wordEndsMS": [4188]},
    ]
    assert [len(span) for span in ready.transcriber.spans] == [32000, 16000]
    assert (ready.progress, ready.dataset) == (1.0, {})


def test_silence_gives_an_empty_transcript(module: Any) -> None:
    module.languageDict, module.doSpeakerID = {"en": {}}, False
    module.override_transcriber(ScriptedRecogniser())
    upload(module)
    answer = finalize(module)
    assert (answer["success"], answer["transcriptSegments"], module.progress) == (True, [], 1.0)


def test_progress_rises_and_cancel_stops_at_the_next_segment(ready: Any) -> None:
    class Cancelled(ScriptedRecogniser):
        def produce(self) -> Iterator[Segment]:
            for i, segment in enumerate(self.segments):
                self.progress_seen.append(ready.progress)
                if i == 2:
                    ready.stt_cancel_func({})
                yield segment

    recogniser = Cancelled(*(Segment(i, i + 0.5, " A.", [Word(i, i + 0.5, " A.")]) for i in range(4)))
    ready.override_transcriber(recogniser)
    upload(ready)
    assert finalize(ready) == {"success": False, "error": "STT transcription cancelled"}
    assert recogniser.progress_seen == [0.0, 1.5 / 6, 2.5 / 6] and ready.progress == 3.5 / 6
    assert ready.dataset == {} and not ready.mMutex.locked()


@pytest.mark.parametrize("debug", [True, False])
def test_failure_is_answered_and_keeps_the_audio(ready: Any, capsys: pytest.CaptureFixture[str], debug: bool) -> None:
    ready.transcriber.transcribe = lambda samples, language: 1 / 0
    upload(ready)
    assert finalize(ready, debug=debug) == {"success": False, "error": "division by zero"}
    captured = capsys.readouterr()
    assert "ZeroDivisionError" in (captured.out if debug else captured.err)
    assert "M" in ready.dataset["P"] and not ready.mMutex.locked()


def test_transcribe_with_switches(ready: Any) -> None:
    recogniser = ScriptedRecogniser(*segments_of("(Yes) *no* Mr. X"))
    ready.override_transcriber(recogniser)
    upload(ready, project="")
    answer = ready.stt_transcribe_audio_func({"mediaGuid": "M", "removeSymbols": True})
    assert list(answer) == ["success", "model", "device", "segments"]
    assert [segment["text"] for segment in answer["segments"]] == ["(Yes) no Mr. X"] * 2
    assert answer["segments"][0]["words"][1] == {"startMs": 1250, "endMs": 1500, "word": "no", "probability": 0.9}
    assert "speakerID" not in answer["segments"][0] and answer["segments"][0]["language"] == "fr"
    assert recogniser.languages == [None, None]


def test_one_run_at_a_time(ready: Any) -> None:
    running: list[int] = []

    class Watched(ScriptedRecogniser):
        def produce(self) -> Iterator[Segment]:
            running.append(threading.get_ident())
            threading.Event().wait(0.01)
            assert running[-1] == threading.get_ident()
            yield from self.segments

    ready.override_transcriber(Watched())
    answers: list[Any] = []
    for clip in "abcd":
        upload(ready, mediaGuid=clip)
    threads = [threading.Thread(target=lambda c=clip: answers.append(finalize(ready, mediaGuid=c))) for clip in "abcd"]
    for thread in threads:
        thread.start()
    for thread in threads:
        thread.join()
    assert [answer["success"] for answer in answers] == [True] * 4
    assert len(running) == 8 and all(running[i] == running[i + 1] for i in range(0, 8, 2))


def test_recogniser_is_made_once_and_stays(ready: Any, monkeypatch: pytest.MonkeyPatch) -> None:
    made: list[Any] = []
    ready.override_transcriber(None)
    assert ready.describe_model() == ("unknown", "unknown")
    monkeypatch.setattr(ready.TranscriberModel, "Transcriber", lambda where: made.append(where) or ScriptedRecogniser())
    for folder in ("/models/a", "/models/b"):
        ready.set_stt_model_dir_func({"modelDir": folder})
        upload(ready)
        assert finalize(ready)["success"] is True
    assert made == ["/models/a"]


def test_speakers_are_looked_for_again_once_the_model_is_there(ready: Any, monkeypatch: pytest.MonkeyPatch) -> None:
    ready.doSpeakerID = True
    ready.set_stt_model_dir_func({"modelDir": "nowhere"})
    upload(ready)
    assert "KestrelDiarize.onnx" in finalize(ready)["error"]
    monkeypatch.setattr(ready, "init_session", lambda path, device: "session")
    monkeypatch.setattr(ready, "compute_embeddings", lambda *_, **__: ([(1.0, 3.0), (4.0, 5.0)], [[0.0], [1.0]]))
    monkeypatch.setattr(ready, "cluster", lambda vectors, sparsity, max_num_spks: [4, 2])
    assert [segment["speakerID"] for segment in finalize(ready)["transcriptSegments"]] == ["1", "2"]

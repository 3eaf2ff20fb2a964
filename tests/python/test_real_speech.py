"""Real recordings through the real service and models: words, their times, progress and cancel."""

from __future__ import annotations

import base64
import re
import threading
import time
from typing import Any, Optional

import numpy as np
import pytest
from conftest import DEPS, RATE, recording, upload_chunks
from faster_whisper import vad
from rapidfuzz.distance import Levenshtein
from speech_process import SpeechProcess

ENGLISH_LONG = """
If you would like to learn more technical information about Asterisk, dial 2 now. If you'd like to test out the voice
over IP capabilities of Asterisk, you can dial 500 to attempt an Inter-Asterisk Exchange or IAX connection to a
demonstration server at Digium. In order for this test to work, you will need to be connected to the Internet and have
at least a 28.8 kilobit modem. To execute an echo test, dial 600. This test is most useful when you have connected to
this Asterisk server from a remote location. The sample configuration also has a single user with extension 1234 and
password 4242. That user is configured to ring the console when their extension is dialed. If you dial 1234, you can try
to ring the console. If the console is busy or unavailable, you will be given the option to leave voicemail. To check
voicemail for the user, dial extension 8500 to enter the voicemail system. Finally, you can press the pound key to
disconnect from the PBX.
"""


@pytest.fixture(scope="module")
def service(tmp_path_factory: pytest.TempPathFactory) -> Any:
    with SpeechProcess(tmp_path_factory.mktemp("speech")) as process:
        process.ask("set_stt_model_dir", {"modelDir": str(DEPS / "models")})
        yield process


def upload(service: SpeechProcess, samples: Any, clip: str) -> None:
    for chunk in upload_chunks(samples):
        text = base64.b64encode(chunk["audioSamples"].tobytes()).decode()
        encoded = {**chunk, "audioSamples": text, "encodedData": True}
        assert service.ask("stt_upload_audio", {**encoded, "mediaGuid": clip, "projectGuid": "P"})["success"]


def finalize(service: SpeechProcess, clip: str, language: str) -> Any:
    clip_names = {"mediaGuid": clip, "projectGuid": "P", "audioTracks": "1"}
    return service.ask("stt_finalize", {"total_samples": 0, **clip_names, "langCode": language})


class Finalizing(threading.Thread):
    """A finalize request on its way."""

    def __init__(self, service: SpeechProcess, clip: str) -> None:
        super().__init__()
        self.service, self.clip, self.answer = service, clip, None
        self.start()

    def run(self) -> None:
        self.answer = finalize(self.service, self.clip, "en")

    def progress(self) -> Optional[float]:
        """The next value of progress, none when the request is answered."""
        time.sleep(0.05)
        return float(self.service.ask("stt_progress", {})["progress"]) if self.is_alive() else None


def spoken_words(text: str) -> list[str]:
    """Words to compare: without case and punctuation, hyphens apart, figures in one piece however they are grouped."""
    joined = re.sub(r"(?<=\d)[\s,.-]+(?=\d)", "", text.lower())
    return re.findall(r"[\w']+", joined)


def timed_words(segment: dict[str, Any]) -> list[tuple[str, float, float]]:
    """Text, start and end in seconds of a segment's words, as far as words and blanks go together."""
    times = zip(segment["wordStartsMS"], segment["wordEndsMS"])
    texts = [word for word in re.split(r"[\s-]+", segment["transcript"]) if word]
    return [(text, start / 1000, end / 1000) for text, (start, end) in zip(texts, times)]


def speech_onsets(samples: Any, silence: float = 0.25) -> list[float]:
    """Times at which speech sets in after silence, as the voice detector hears it."""
    audio = (samples / np.float32(32768)).astype(np.float32)
    probability = vad.get_vad_model()(np.pad(audio, (0, 512 - len(audio) % 512)))
    onsets, last_speech = [], -silence
    for i, value in enumerate(np.ravel(probability)):
        begin = i * 512 / RATE
        if value < 0.5:
            continue
        if begin - last_speech >= silence:
            onsets.append(begin)
        last_speech = begin + 512 / RATE
    return onsets


def check_word_starts(samples: Any, segments: list[dict[str, Any]]) -> None:
    """Wherever speech sets in, a word has to begin, give or take 0.3 s."""
    words = [word for segment in segments for word in timed_words(segment)]
    # A number is one word in writing and several in speech, with pauses in between.
    in_numbers = [(start, end) for text, start, end in words if re.search(r"\d", text)]
    onsets = [o for o in speech_onsets(samples) if not any(start < o < end for start, end in in_numbers)]
    off = {onset: min(abs(start - onset) for _, start, _ in words) for onset in onsets}
    assert off and max(off.values()) <= 0.3, off


def test_long_recording(service: SpeechProcess) -> None:
    samples = recording("english_long.wav")
    upload(service, samples, "long")
    request, seen = Finalizing(service, "long"), [0.0]
    while (progress := request.progress()) is not None:
        seen.append(progress)
    answer = request.answer
    assert answer["success"] is True, answer
    assert (answer["model"], answer["device"]) == ("faster-whisper-base", "cpu")

    assert seen == sorted(seen), "progress never falls"
    assert any(0.0 < progress < 1.0 for progress in seen), "progress is reported while the transcription runs"
    assert service.ask("stt_progress", {})["progress"] == 1.0

    segments = answer["transcriptSegments"]
    said, heard = spoken_words(ENGLISH_LONG), spoken_words(" ".join(s["transcript"] for s in segments))
    assert Levenshtein.distance(said, heard) <= 0.04 * len(said), heard
    assert [segment["segment"] for segment in segments] == list(range(len(segments)))
    for segment in segments:
        starts, ends = segment["wordStartsMS"], segment["wordEndsMS"]
        assert starts == sorted(starts) and all(start <= end for start, end in zip(starts, ends))
    check_word_starts(samples, segments)


@pytest.mark.parametrize(
    "name, language",
    [("english_short", "en"), ("spanish", "es"), ("french", "fr"), ("librivox_1", "en")],
)
def test_words_begin_where_speech_begins(service: SpeechProcess, name: str, language: str) -> None:
    samples = recording(f"{name}.wav")
    upload(service, samples, name)
    check_word_starts(samples, finalize(service, name, language)["transcriptSegments"])

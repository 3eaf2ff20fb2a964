"""The recogniser as the transcription module sees it."""

from __future__ import annotations

from collections.abc import Iterable, Iterator, Mapping, Sequence
from pathlib import Path
from typing import Any, NamedTuple, Optional

import ctranslate2
import joblib

from FasterWhisperTranscriber.languages import LanguageSpan, Piece, find_languages
from FasterWhisperTranscriber.loops import without_loops
from FasterWhisperTranscriber.model_folder import find_model_folder, missing_files, model_size_of
from FasterWhisperTranscriber.settings import read_settings
from FasterWhisperTranscriber.short_window import ShortWindowModel
from FasterWhisperTranscriber.word_times import Samples, Sound, TimedWord, fit_last_word, fit_words

SAMPLING_RATE = 16000
DETECT = "auto"  # in place of a language code: the language is found
RANDOM_SEED = 1

DECODING: dict[str, Any] = {
    "word_timestamps": True,
    # A beam costs a fifth more than greedy search and saves a few words in every hundred.
    "beam_size": 5,
    # Carried into the next window, an error can become a loop or a hallucination that lasts for minutes.
    "condition_on_previous_text": False,
    # Sampling takes over when the best text is a loop or improbable. Three attempts, not the usual six: each costs a
    # full decoding, and what two temperatures do not fix is not speech.
    "temperature": (0.0, 0.4, 0.8),
    "compression_ratio_threshold": 2.4,
    "log_prob_threshold": -1.0,
    # Improbable text with at least this probability of silence is dropped.
    "no_speech_threshold": 0.6,
    # The module has found the voiced spans already; a second voice filter would only cut words.
    "vad_filter": False,
}

MOST_EQUAL_SEGMENTS = 3  # one after the other; more of them are a loop that spans segments


class RecognisedSegment(NamedTuple):
    """A stretch of recognised speech; times in seconds from the start of the samples."""

    start: float
    end: float
    text: str
    words: list[TimedWord]


class Transcriber:
    """A loaded Whisper model, exchanged between two recordings when the settings name another one."""

    model_pkg = "faster-whisper"
    tells_confidence = True  # the words' probabilities

    def __init__(self, model_dir: Optional[str]) -> None:
        self._model_dir = model_dir
        self._settings = read_settings()
        self._load(self._wanted_folder())

    def transcribe(
        self, samples: Samples, selected_language: Optional[str]
    ) -> tuple[Iterator[RecognisedSegment], list[str]]:
        """The segments, recognised as they are consumed, and the language, which is found when none is given."""
        self._follow_settings()
        language = None if selected_language == DETECT else selected_language
        if language is not None and not self._model.model.is_multilingual and language != "en":
            raise ValueError(f"the speech model {self.model_size} knows English only, not '{language}'")
        segments, info = self._model.transcribe(samples, language=language, hotwords=self._settings.terms, **DECODING)
        return refine(segments, Sound(samples, SAMPLING_RATE)), [info.language]

    def find_languages(self, samples: Samples, spans: Sequence[Mapping[str, int]]) -> list[LanguageSpan]:
        """The voiced spans of a recording, cut where the language changes."""
        self._follow_settings()
        pieces = [Piece(int(span["start"]), int(span["end"])) for span in spans]
        if not self._model.model.is_multilingual:
            return [LanguageSpan(*piece, "en") for piece in pieces]
        return find_languages(samples, pieces, SAMPLING_RATE, self._model.language_probabilities)

    def _follow_settings(self) -> None:
        self._settings = read_settings()
        if (folder := self._wanted_folder()) != self._folder:
            self._load(folder)

    def _wanted_folder(self) -> Path:
        chosen = self._settings.model_folder
        if chosen is None:
            return find_model_folder(self._model_dir).resolve()
        if missing := missing_files(Path(chosen)):
            raise FileNotFoundError(f"the speech model folder '{chosen}' lacks {', '.join(missing)}")
        return Path(chosen).resolve()

    def _load(self, folder: Path) -> None:
        device = "cuda" if ctranslate2.get_cuda_device_count() > 0 else "cpu"
        try:
            self._model = ShortWindowModel(
                str(folder),
                device=device,
                compute_type="float16" if device == "cuda" else "int8",
                cpu_threads=joblib.cpu_count(),  # respects affinity and container limits
            )
        except Exception as error:
            raise RuntimeError(f"the speech model in '{folder}' cannot be loaded: {error}") from error
        self._folder = folder
        self.model_size = model_size_of(folder)
        self.model_device = device


def refine(segments: Iterable[Any], sound: Sound) -> Iterator[RecognisedSegment]:
    """The recogniser's segments without loops and with corrected word times.

    A segment is held back until the next one is there: where its last word ends depends on where that one begins.
    """
    ctranslate2.set_random_seed(RANDOM_SEED)  # the same audio gives the same transcript, sampled or not
    held: Optional[RecognisedSegment] = None
    for segment in without_repeated_segments(segments):
        fitted = fit_segment(segment, sound)
        if held is not None:
            yield with_end(held, fitted.words[0] if fitted.words else None, sound)
        held = fitted
    if held is not None:
        yield with_end(held, None, sound)


def without_repeated_segments(segments: Iterable[Any]) -> Iterator[Any]:
    last, times = "", 0
    for segment in segments:
        times = times + 1 if segment.text == last else 1
        last = segment.text
        if times <= MOST_EQUAL_SEGMENTS:
            yield segment


def fit_segment(segment: Any, sound: Sound) -> RecognisedSegment:
    recognised = [TimedWord(float(w.start), float(w.end), w.word, float(w.probability)) for w in segment.words]
    kept = without_loops(recognised)
    text = segment.text if len(kept) == len(recognised) else "".join(word.word for word in kept)
    words = fit_words(kept, sound)
    start, end = (words[0].start, words[-1].end) if words else (float(segment.start), float(segment.end))
    return RecognisedSegment(start, end, text, words)


def with_end(segment: RecognisedSegment, following: Optional[TimedWord], sound: Sound) -> RecognisedSegment:
    if not segment.words:
        return segment
    last = fit_last_word(segment.words[-1], following, sound)
    return segment._replace(end=last.end, words=[*segment.words[:-1], last])

"""Cuts conversations together from recordings of single voices, and knows who speaks when."""

from __future__ import annotations

import random
import wave
from collections.abc import Sequence
from dataclasses import dataclass
from pathlib import Path

import numpy as np
import numpy.typing as npt

SAMPLE_RATE = 16000

Audio = npt.NDArray[np.float32]

_SHORT_ANSWER = 1.5
_NOISE_DB = -60.0
_FRAME = SAMPLE_RATE // 100
_PAUSE_FRAMES = 30
_QUIET_DB = -30.0  # below the loud frames of a turn: softer ones are breath, room and the codec's noise
_TELEPHONE_HZ = (300.0, 3400.0)
_COMPANDING = 255.0


@dataclass(frozen=True)
class Turn:
    begin: float
    end: float
    speaker: str


@dataclass(frozen=True)
class Conversation:
    name: str
    audio: Audio
    turns: Sequence[Turn]
    speech: Sequence[Turn]  # the turns without their inner pauses

    @property
    def seconds(self) -> float:
        return len(self.audio) / SAMPLE_RATE

    @property
    def speakers(self) -> set[str]:
        return {turn.speaker for turn in self.turns}


class Voice:
    """The recordings of one voice, handed out in random order, each once before any comes again."""

    def __init__(self, folder: Path, chance: random.Random) -> None:
        clips = [read_wav(path) for path in sorted(folder.glob("*.wav"))]
        self.name = folder.name
        self._clips = [clip for clip in clips if len(clip) >= _SHORT_ANSWER * SAMPLE_RATE]
        self._answers = [clip for clip in clips if len(clip) < _SHORT_ANSWER * SAMPLE_RATE]
        self._chance = chance
        self._queue: list[Audio] = []

    def speak(self, seconds: float) -> Audio:
        """About so many seconds of speech: clips with short breaths between them."""
        pieces = [self._next()]
        while sum(len(piece) for piece in pieces) < seconds * SAMPLE_RATE:
            pieces += [_silence(self._chance.uniform(0.15, 0.5)), self._next()]
        return np.concatenate(pieces)

    def answer(self) -> Audio:
        if self._answers:
            return self._chance.choice(self._answers)
        return self._next()[: int(self._chance.uniform(0.7, _SHORT_ANSWER) * SAMPLE_RATE)]

    def _next(self) -> Audio:
        if not self._queue:
            self._queue = self._chance.sample(self._clips, len(self._clips))
        return self._queue.pop()


def converse(name: str, folders: Sequence[Path], seconds: float, seed: int, by_telephone: bool = False,
             answers: float = 0.25, interruptions: float = 0.0) -> Conversation:
    """Everyone speaks at least thrice; loudness and pauses vary. `answers` is the share of turns that are short, `interruptions`
    of those that begin before the last one has ended."""
    chance = random.Random(seed)
    voices = [Voice(folder, chance) for folder in folders]
    loudness = {voice.name: chance.uniform(-12, 0) for voice in voices}
    order = [voice for _ in range(3) for voice in chance.sample(voices, len(voices))]
    pieces: list[tuple[int, Audio]] = []
    turns: list[Turn] = []
    speech: list[Turn] = []
    ended, pause, last = 0, 0, ""
    while order or ended + pause < seconds * SAMPLE_RATE:
        voice = order.pop() if order else chance.choice(voices)
        if voice.name == last and len(voices) > 1:
            voice = chance.choice([other for other in voices if other.name != last])
        last = voice.name
        begin = ended + pause
        if turns and voice.name != turns[-1].speaker and interruptions and chance.random() < interruptions:
            begin = ended - round(min(chance.uniform(0.4, 1.0), turns[-1].end - turns[-1].begin) * SAMPLE_RATE)
        spoken = voice.answer() if chance.random() < answers else voice.speak(chance.uniform(2, 9))
        spoken = _at_level(spoken, loudness[voice.name] + chance.uniform(-4, 4))
        pause = int((chance.uniform(2.5, 4) if chance.random() < 0.1 else chance.uniform(0.1, 1.2)) * SAMPLE_RATE)
        pieces.append((begin, spoken))
        turns.append(Turn(begin / SAMPLE_RATE, (begin + len(spoken)) / SAMPLE_RATE, voice.name))
        speech += [Turn((begin + first) / SAMPLE_RATE, (begin + end) / SAMPLE_RATE, voice.name)
                   for first, end in _between_pauses(spoken)]
        ended = max(ended, begin + len(spoken))
    audio = np.zeros(ended + pause, np.float32)
    for begin, spoken in pieces:
        audio[begin : begin + len(spoken)] += spoken
    noise = np.random.default_rng(seed).standard_normal(len(audio)) * 10 ** (_NOISE_DB / 20)
    whole = (audio + noise).astype(np.float32)
    return Conversation(name, telephone(whole) if by_telephone else whole, turns, speech)


def telephone(audio: Audio) -> Audio:
    """As a telephone line carries it: the voice band only, eight bits companded by the mu-law."""
    spectrum = np.fft.rfft(audio)
    hertz = np.fft.rfftfreq(len(audio), 1 / SAMPLE_RATE)
    spectrum[(hertz < _TELEPHONE_HZ[0]) | (hertz > _TELEPHONE_HZ[1])] = 0
    band = np.clip(np.fft.irfft(spectrum, len(audio)), -1, 1)
    companded = np.round(np.sign(band) * np.log1p(_COMPANDING * np.abs(band)) / np.log1p(_COMPANDING) * 127) / 127
    line: Audio = (np.sign(companded) * (np.power(1 + _COMPANDING, np.abs(companded)) - 1) / _COMPANDING).astype(np.float32)
    return line


def _between_pauses(spoken: Audio) -> list[tuple[int, int]]:
    """Sample ranges of the speech in a recording without noise."""
    frames = spoken[: len(spoken) // _FRAME * _FRAME].reshape(-1, _FRAME)
    level = np.sqrt(np.mean(frames**2, axis=1))
    smooth = np.convolve(level, np.ones(5) / 5, mode="same")
    loud = np.flatnonzero(smooth > np.percentile(smooth, 95) * 10 ** (_QUIET_DB / 20))
    cuts = np.flatnonzero(np.diff(loud) > _PAUSE_FRAMES)
    begins, ends = np.concatenate([loud[:1], loud[cuts + 1]]), np.concatenate([loud[cuts], loud[-1:]]) + 1
    return [(int(begin) * _FRAME, int(end) * _FRAME) for begin, end in zip(begins, ends)]


def read_wav(path: Path) -> Audio:
    with wave.open(str(path), "rb") as file:
        samples = np.frombuffer(file.readframes(file.getnframes()), "<i2")
    scaled: Audio = samples.astype(np.float32) / np.float32(32768)
    return scaled


def _silence(seconds: float) -> Audio:
    return np.zeros(int(seconds * SAMPLE_RATE), np.float32)


def _at_level(audio: Audio, decibels: float) -> Audio:
    """Scaled so that its loud parts lie so far below a common level."""
    level = float(np.sqrt(np.mean(audio**2))) + 1e-9
    scaled: Audio = np.clip(audio * (0.1 * 10 ** (decibels / 20) / level), -1, 1).astype(np.float32)
    return scaled

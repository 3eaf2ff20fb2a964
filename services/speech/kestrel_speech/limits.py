"""Limits that keep the service responsive under too many or too large requests."""

from __future__ import annotations

import threading
import time
from collections.abc import Callable, Mapping
from typing import Any

ABANDONED_SECONDS = 3600.0


class LimitExceeded(Exception):
    """The request is valid but exceeds a limit of the service."""


class UploadLimit:
    """Limits the uploaded audio that is kept in memory until it is transcribed.

    A client that exits between upload and transcription leaves its audio behind. When memory is short, clips that have
    received nothing for an hour are dropped; a transcription that is queued or running has its own copy of the audio.
    """

    def __init__(self, speech: Any, max_samples: int, clock: Callable[[], float] = time.monotonic) -> None:
        self.speech = speech
        self.max_samples = max_samples
        self.clock = clock
        self.lock = threading.Lock()
        self.last_upload: dict[tuple[str, str], float] = {}

    def upload(self, params: Mapping[str, Any]) -> Mapping[str, Any]:
        """Buffers one chunk if the limit allows it."""
        samples = params["audioSamples"]
        # Base64 carries three bytes, one and a half samples, in four characters.
        wanted = len(samples) * 3 // 8 if "encodedData" in params else len(samples)
        with self.lock:
            self.make_room(wanted)
            answer: Mapping[str, Any] = self.speech.stt_upload_audio_func(params)
            self.last_upload[params["projectGuid"], params["mediaGuid"]] = self.clock()
        return answer

    def make_room(self, wanted: int) -> None:
        if self.buffered_samples() + wanted > self.max_samples:
            self.drop_abandoned_clips()
        buffered = self.buffered_samples()
        if buffered + wanted > self.max_samples:
            rate = self.speech.audioSampRate * 3600.0
            raise LimitExceeded(
                f"no room for more audio: {buffered / rate:.2f} hours are waiting to be transcribed and the limit is "
                f"{self.max_samples / rate:.2f} hours; transcribe the uploaded clips first, or start the service "
                "with a larger --max-audio-hours"
            )

    def buffered_samples(self) -> int:
        with self.speech.dsMutex:
            clips = [chunks for project in self.speech.dataset.values() for chunks in project.values()]
        return sum(len(chunk) for chunks in clips for chunk in list(chunks.values()))

    def drop_abandoned_clips(self) -> None:
        oldest = self.clock() - ABANDONED_SECONDS
        for (project, media), uploaded in list(self.last_upload.items()):
            if uploaded < oldest:
                self.speech.cleanUpMemory(project, media)
                del self.last_upload[project, media]


class TranscriptionLimit:
    """Limits running and queued transcriptions, so that threads remain free for progress and cancel requests."""

    def __init__(self, most: int) -> None:
        self.most = most
        self.free = threading.Semaphore(most)

    def limited(self, function: Callable[[dict[str, Any]], Mapping[str, Any]]) -> Callable[[dict[str, Any]], Any]:
        """The function, which then raises LimitExceeded while the limit is reached."""

        def call(params: dict[str, Any]) -> Mapping[str, Any]:
            if not self.free.acquire(blocking=False):
                raise LimitExceeded(f"{self.most} transcriptions are already running or queued; try again later")
            try:
                return function(params)
            finally:
                self.free.release()

        return call

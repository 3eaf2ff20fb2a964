"""What keeps the service alive when clients ask too much of it."""

from __future__ import annotations

import threading
import time
from collections.abc import Callable, Mapping
from typing import Any

ABANDONED_SECONDS = 3600.0


class LimitExceeded(Exception):
    """The request is in order but would take more than the service gives."""


class UploadLimit:
    """Bounds the audio that waits in memory for its transcription.

    A client that dies between upload and transcription leaves its audio behind. When room is short, clips to which
    nothing was added for an hour are dropped; a transcription that waits or runs has a copy of its audio already.
    """

    def __init__(self, speech: Any, max_samples: int, clock: Callable[[], float] = time.monotonic) -> None:
        self.speech = speech
        self.max_samples = max_samples
        self.clock = clock
        self.lock = threading.Lock()
        self.last_upload: dict[tuple[str, str], float] = {}

    def upload(self, params: Mapping[str, Any]) -> Mapping[str, Any]:
        """Buffers one chunk when there is room for it."""
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
                f"no room for more audio: {buffered / rate:.2f} hours wait for their transcription and the limit is "
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
    """Bounds the transcriptions that run or wait, so that threads are left to answer progress and cancel."""

    def __init__(self, most: int) -> None:
        self.most = most
        self.free = threading.Semaphore(most)

    def limited(self, function: Callable[[dict[str, Any]], Mapping[str, Any]]) -> Callable[[dict[str, Any]], Any]:
        """The function, refusing to be called more often at once than the limit allows."""

        def call(params: dict[str, Any]) -> Mapping[str, Any]:
            if not self.free.acquire(blocking=False):
                raise LimitExceeded(f"{self.most} transcriptions run or wait already; try again later")
            try:
                return function(params)
            finally:
                self.free.release()

        return call

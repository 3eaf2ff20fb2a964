"""The limits of the speech service."""

from __future__ import annotations

import threading
from typing import Any

import pytest
from kestrel_speech.limits import ABANDONED_SECONDS, LimitExceeded, TranscriptionLimit, UploadLimit


class Clock:
    now = 0.0

    def __call__(self) -> float:
        return self.now


def chunk(module: Any, clip: str, count: int, start: int = 0, encoded: bool = False) -> dict[str, Any]:
    samples: Any = [0] * count
    params = {"start_sample": start, "end_sample": start + count, "mediaGuid": clip, "projectGuid": "P"}
    if encoded:
        params["encodedData"] = True
        samples = module.array_to_base64(module.array("h", samples))
    return {**params, "audioSamples": samples}


@pytest.mark.parametrize("encoded", [False, True])
def test_upload_is_bounded(module: Any, encoded: bool) -> None:
    limit = UploadLimit(module, max_samples=3600)
    assert limit.upload(chunk(module, "a", 3000, encoded=encoded))["success"] is True
    with pytest.raises(LimitExceeded, match="no room for more audio"):
        limit.upload(chunk(module, "b", 900, encoded=encoded))
    assert list(module.dataset["P"]) == ["a"]
    module.cleanUpMemory("P", "a")
    limit.upload(chunk(module, "b", 900, encoded=encoded))


def test_abandoned_clips_make_room(module: Any) -> None:
    clock = Clock()
    limit = UploadLimit(module, max_samples=100, clock=clock)
    limit.upload(chunk(module, "old", 60))
    clock.now = 10.0
    limit.upload(chunk(module, "fresh", 30))
    clock.now = ABANDONED_SECONDS + 5
    limit.upload(chunk(module, "new", 50))
    assert list(module.dataset["P"]) == ["fresh", "new"]


def test_transcriptions_are_bounded() -> None:
    begun, go_on = threading.Barrier(3), threading.Event()

    def work(params: dict[str, Any]) -> dict[str, Any]:
        begun.wait()
        go_on.wait()
        return params

    limited = TranscriptionLimit(2).limited(work)
    threads = [threading.Thread(target=limited, args=({},)) for _ in range(2)]
    for thread in threads:
        thread.start()
    begun.wait()
    with pytest.raises(LimitExceeded, match="2 transcriptions"):
        limited({})
    go_on.set()
    for thread in threads:
        thread.join()
    begun.reset()
    with pytest.raises(ZeroDivisionError):
        TranscriptionLimit(1).limited(lambda params: {"x": 1 / 0})({})

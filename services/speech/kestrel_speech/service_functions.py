"""The transcription module's service functions, by request path."""

from __future__ import annotations

from collections.abc import Callable, Mapping
from importlib import import_module
from typing import Any, NamedTuple

from kestrel_speech.limits import TranscriptionLimit, UploadLimit

Answer = Mapping[str, Any]
Function = Callable[[dict[str, Any]], Answer]


class Route(NamedTuple):
    """One path of the service; only requests with a body need a content type."""

    method: str
    function: Function
    has_body: bool = True


def import_speech_module() -> Any:
    """The speech part of the module. Cancel flag and progress are kept in the module even if it found the library
    installed system-wide: the library's state belongs to host processes."""
    speech: Any = import_module("SpeechToText.WhisperTranscriptionImpl")
    speech.whisper_share = None
    return speech


def load_routes(max_audio_seconds: float, max_transcriptions: int) -> dict[str, Route]:
    """Imports the transcription module, which takes seconds, and maps paths to its functions."""
    speech = import_speech_module()
    semantic_search = import_module("SemanticSearch.semantic_search")
    upload = UploadLimit(speech, int(max_audio_seconds * speech.audioSampRate))
    transcription = TranscriptionLimit(max_transcriptions)
    return {
        "/set_stt_model_dir": Route("PUT", speech.set_stt_model_dir_func),
        "/stt_getSupportedLanguages": Route("GET", lambda _: speech.stt_getSupportedLanguages_func(), has_body=False),
        "/stt_upload_audio": Route("PUT", upload.upload),
        "/stt_finalize": Route("PUT", transcription.limited(speech.stt_finalize_func)),
        "/stt_transcribe_audio": Route("PUT", transcription.limited(speech.stt_transcribe_audio_func)),
        "/stt_cancel": Route("PUT", speech.stt_cancel_func),
        "/stt_progress": Route("PUT", speech.stt_progress_func),
        "/set_semantic_search_model_dir": Route("PUT", semantic_search.set_semantic_search_model_dir_func),
        "/get_text_vector_embedding": Route("GET", semantic_search.get_vector_embedding_from_text),
    }

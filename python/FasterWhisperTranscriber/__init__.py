"""The recogniser's wrapper: faster-whisper behind the interface that the transcription module asks for."""

from FasterWhisperTranscriber.transcriber import Transcriber

__all__ = ["Transcriber"]

"""The local speech and embedding service: the transcription module behind HTTP on the loopback address."""

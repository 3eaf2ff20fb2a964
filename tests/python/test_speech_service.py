"""The speech service as a separate process, without models."""

from __future__ import annotations

import base64
import os
import signal
import socket
import subprocess
import sys
from pathlib import Path
from typing import Any

import pytest
import waitress
from conftest import ROOT
from speech_process import JSON, LAUNCHER, SpeechProcess


@pytest.fixture(scope="module")
def service(tmp_path_factory: pytest.TempPathFactory) -> Any:
    with SpeechProcess(tmp_path_factory.mktemp("speech"), "--max-audio-hours", "0.01") as process:
        yield process


def audio(samples: int, clip: str) -> dict[str, Any]:
    text = base64.encodebytes(bytes(2 * samples)).decode().replace("\n", "\r\n")
    chunk = {"start_sample": 0, "end_sample": samples, "mediaGuid": clip, "projectGuid": "P"}
    return {**chunk, "audioSamples": text, "encodedData": True}


def test_ready_file_has_the_address(service: SpeechProcess) -> None:
    assert service.ready == {"uri": f"http://127.0.0.1:{service.port}/", "pid": service.process.pid}


def test_the_life_of_a_clip_without_model(service: SpeechProcess, tmp_path: Path) -> None:
    assert "not set" in service.ask("stt_getSupportedLanguages", method="GET")["error"]
    answer = service.ask("set_stt_model_dir", {"modelDir": str(tmp_path)})
    assert answer == {"modelDir": str(tmp_path), "success": True}
    failed = service.ask("stt_getSupportedLanguages", method="GET")
    assert failed["success"] is False and "Languages.json" in failed["error"]

    assert service.ask("stt_cancel", {}) == {"success": True}
    uploaded = service.ask("stt_upload_audio", audio(1000, "M"))
    assert uploaded == {"start_sample": 0, "end_sample": 1000, "projectGuid": "P", "mediaGuid": "M", "success": True}
    assert service.ask("stt_progress", {}) == {"success": True, "progress": 0.0}
    clip = {"total_samples": 1000, "mediaGuid": "M", "projectGuid": "P", "audioTracks": "", "langCode": "en"}
    assert service.ask("stt_finalize", clip)["success"] is False
    (tmp_path / "Languages.json").write_text('{"en": {"language": "English", "local": "English"}}')
    assert service.ask("stt_getSupportedLanguages", method="GET")["languages"]["en"]["local"] == "English"
    assert service.ask("stt_finalize", {**clip, "langCode": "xx"})["error"].startswith("language is not supported")
    unchosen = {name: value for name, value in clip.items() if name != "langCode"}
    assert service.ask("stt_finalize", unchosen)["error"] == "lang-code parameter is missing - please select a language"
    assert service.ask("stt_transcribe_audio", {})["error"] == "mediaGuid parameter is missing"
    service.ask("stt_upload_audio", audio(1000, "M"))
    failed = service.ask("stt_finalize", clip)
    assert failed["success"] is False and f"no speech model in '{tmp_path}'" in failed["error"]
    assert service.ask("stt_finalize", {**clip, "langCode": "xx"})["success"] is False  # drops the audio

    incomplete = service.ask("stt_upload_audio", {"mediaGuid": "M"})
    assert incomplete == {"success": False, "error": "audioSamples parameter is missing"}
    assert service.ask("get_text_vector_embedding", {"query": "x"}, "GET")["error"].endswith("models are not loaded")
    semantic = {"modelDir": str(tmp_path), "onnxRTExtLibPath": ""}
    assert "openclip_model_uint8" in service.ask("set_semantic_search_model_dir", semantic)["error"]


def test_upload_limit_is_reported(service: SpeechProcess) -> None:
    assert service.ask("stt_upload_audio", audio(500_000, "full"))["success"] is True
    refused = service.ask("stt_upload_audio", audio(100_000, "more"))
    assert refused["success"] is False and "the limit is 0.01 hours" in refused["error"]


@pytest.mark.parametrize("method, path, body, headers, status, error", [
    ("PUT", "/stt_progress", b"{}", {**JSON, "Origin": "http://page.example"}, 403, "web pages"),
    ("PUT", "/stt_progress", b"{}", {**JSON, "Host": "page.example"}, 403, "'page.example'"),
    ("PUT", "/stt_progress", b"{}", {**JSON, "Host": "127.0.0.1.page.example:5000"}, 403, "loopback"),
    ("PUT", "/stt_progress", b"{}", {**JSON, "Host": "[::1"}, 403, "loopback"),
    ("PUT", "/stt_progress", b"{}", {"Content-Type": "text/plain"}, 415, "'text/plain'"),
    ("PUT", "/stt_progress", b"{", JSON, 400, "not valid JSON"),
    ("PUT", "/stt_progress", b"[" * 100_000, JSON, 400, "not valid JSON"),
    ("PUT", "/stt_progress", b"\xff", JSON, 400, "not valid JSON"),
    ("PUT", "/stt_progress", b"[]", JSON, 400, "JSON object"),
    ("POST", "/stt_progress", b"{}", JSON, 405, "requires PUT"),
    ("GET", "/stt_cancel", b"", JSON, 405, "requires PUT"),
    ("GET", "/", b"", JSON, 404, "'/'"),
    ("PUT", "/stt_progress/x", b"{}", JSON, 404, "'/stt_progress/x'"),
])
def test_wrong_requests(
    service: SpeechProcess, method: str, path: str, body: bytes, headers: dict[str, str], status: int, error: str
) -> None:
    answered, answer = service.request(method, path, body, headers)
    assert (answered, answer["success"]) == (status, False) and error in answer["error"]


@pytest.mark.parametrize("host", ["localhost", "LOCALHOST:80", "[::1]:5000", "127.0.0.1"])
def test_loopback_names_are_accepted(service: SpeechProcess, host: str) -> None:
    headers = {"Content-Type": "application/json; charset=utf-8", "Host": host}
    assert service.request("PUT", "/stt_progress", b"{}", headers)[0] == 200


def test_malformed_requests_get_json(service: SpeechProcess) -> None:
    status, answer = service.request("PUT", "/stt_progress", b"", {**JSON, "Content-Length": str(1 << 40)})
    assert status == 413 and "Too Large" in answer["error"]


def test_second_service_on_a_port_says_so(service: SpeechProcess) -> None:
    second = subprocess.run([LAUNCHER, "--port", str(service.port)], capture_output=True, text=True, timeout=60)
    assert second.returncode == 1
    assert f"port {service.port} is taken" in second.stderr and "Traceback" not in second.stderr


def test_incomplete_environment_says_what_to_do(tmp_path: Path) -> None:
    (tmp_path / "kestrel_speech").symlink_to(ROOT / "services" / "speech" / "kestrel_speech")
    (tmp_path / "waitress").symlink_to(Path(waitress.__file__).parent)
    started = subprocess.run(
        [sys.executable, "-S", "-m", "kestrel_speech", "--port", "0"],
        env={"PYTHONPATH": str(tmp_path)}, cwd=tmp_path, capture_output=True, text=True, timeout=60,
    )  # fmt: skip
    assert started.returncode == 1
    assert "'SpeechToText'" in started.stderr and "run scripts/setup" in started.stderr
    assert "Traceback" not in started.stderr


@pytest.mark.parametrize("number", [signal.SIGTERM, signal.SIGINT])
def test_signals_end_it_cleanly(tmp_path: Path, number: signal.Signals) -> None:
    with SpeechProcess(tmp_path) as process:
        os.kill(process.ready["pid"], number)
        assert process.process.wait(timeout=20) == 0
        assert not process.ready_file.exists()
        with pytest.raises(ConnectionRefusedError):
            socket.create_connection(("127.0.0.1", process.port), timeout=5)

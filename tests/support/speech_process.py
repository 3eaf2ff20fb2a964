"""A running speech service, for tests."""

from __future__ import annotations

import http.client
import json
import os
import subprocess
import time
from collections.abc import Mapping
from pathlib import Path
from typing import Any, Optional

ROOT = Path(__file__).resolve().parents[2]
LAUNCHER = str(Path(os.environ.get("KESTREL_BUILD_BIN", ROOT / "build" / "bin")) / "kestrel-speech")
JSON = {"Content-Type": "application/json"}


class SpeechProcess:
    """Starts the real service, on a free port unless told; stops it at the end of the with block."""

    def __init__(self, folder: Path, *arguments: str, port: int = 0) -> None:
        self.ready_file = folder / "ready.json"
        self.log = open(folder / "log.txt", "w")
        command = [LAUNCHER, "--port", str(port), "--ready-file", str(self.ready_file), *arguments]
        self.process = subprocess.Popen(command, stdout=self.log, stderr=subprocess.STDOUT)

    def __enter__(self) -> SpeechProcess:
        deadline = time.monotonic() + 60
        while not self.ready_file.exists():
            if self.process.poll() is not None or time.monotonic() > deadline:
                self.__exit__()
                raise RuntimeError(f"the speech service did not start: {Path(self.log.name).read_text()}")
            time.sleep(0.02)
        self.ready = json.loads(self.ready_file.read_text())
        self.uri: str = self.ready["uri"]
        self.port = int(self.uri.rstrip("/").rpartition(":")[2])
        return self

    def __exit__(self, *exception: object) -> None:
        self.process.terminate()
        try:
            self.process.wait(timeout=20)
        except subprocess.TimeoutExpired:
            self.process.kill()
            self.process.wait()
        self.log.close()

    def request(self, method: str, path: str, body: bytes = b"", headers: Mapping[str, str] = JSON) -> tuple[int, Any]:
        """Status and content of an answer, which must be JSON."""
        connection = http.client.HTTPConnection("127.0.0.1", self.port, timeout=600)
        try:
            connection.request(method, path, body, dict(headers))
            response = connection.getresponse()
            assert response.getheader("Content-Type") == "application/json"
            return response.status, json.loads(response.read())
        finally:
            connection.close()

    def ask(self, path: str, params: Optional[dict[str, Any]] = None, method: str = "PUT") -> Any:
        """The answer to a request, which must be accepted."""
        status, answer = self.request(method, "/" + path, b"" if params is None else json.dumps(params).encode())
        assert status == 200, answer
        return answer

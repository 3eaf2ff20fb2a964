"""A running speech service, for tests."""

from __future__ import annotations

import http.client
import json
import os
import subprocess
import time
from pathlib import Path
from typing import Any, Optional

from conftest import ROOT

LAUNCHER = str(Path(os.environ.get("KESTREL_BUILD_BIN", ROOT / "build" / "bin")) / "kestrel-speech")


class SpeechProcess:
    """Starts the real service on a free port; stops it at the end of the with block."""

    def __init__(self, folder: Path, *arguments: str) -> None:
        self.ready_file = folder / "ready.json"
        self.log = open(folder / "log.txt", "w")
        command = [LAUNCHER, "--port", "0", "--ready-file", str(self.ready_file), *arguments]
        self.process = subprocess.Popen(command, stdout=self.log, stderr=subprocess.STDOUT)

    def __enter__(self) -> SpeechProcess:
        deadline = time.monotonic() + 60
        while not self.ready_file.exists():
            if self.process.poll() is not None or time.monotonic() > deadline:
                self.__exit__()
                raise RuntimeError(f"the speech service did not start: {Path(self.log.name).read_text()}")
            time.sleep(0.02)
        self.ready = json.loads(self.ready_file.read_text())
        self.port = int(self.ready["uri"].rstrip("/").rpartition(":")[2])
        return self

    def __exit__(self, *exception: object) -> None:
        self.process.terminate()
        try:
            self.process.wait(timeout=20)
        except subprocess.TimeoutExpired:
            self.process.kill()
            self.process.wait()
        self.log.close()

    def ask(self, path: str, params: Optional[dict[str, Any]] = None, method: str = "PUT") -> Any:
        """The answer to a request, which must be accepted."""
        connection = http.client.HTTPConnection("127.0.0.1", self.port, timeout=600)
        try:
            body = "" if params is None else json.dumps(params)
            connection.request(method, "/" + path, body, {"Content-Type": "application/json"})
            response = connection.getresponse()
            answer = response.read()
            assert response.status == 200, answer
            return json.loads(answer)
        finally:
            connection.close()

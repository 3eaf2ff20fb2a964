"""`kestrel desk` as a process, and requests to it that are exactly what a test wants to send."""

from __future__ import annotations

import http.client
import json
import signal
import time
from collections.abc import Callable
from types import TracebackType
from typing import Any
from urllib.parse import urlsplit

from app_under_test import Kestrel


class Answer:
    def __init__(self, answer: http.client.HTTPResponse) -> None:
        self.status = answer.status
        self.headers = answer.headers
        self.body = answer.read()

    def json(self) -> Any:
        return json.loads(self.body)


class Desk:
    def __init__(self, kestrel: Kestrel) -> None:
        self._process = kestrel.start("desk", "--port", 0, "--no-open")
        assert self._process.stdout is not None
        self.address = self._process.stdout.readline().strip()
        if not self.address:
            raise AssertionError(self._process.communicate()[1])
        parts = urlsplit(self.address)
        self.port = parts.port
        self.token = parts.fragment.removeprefix("token=")
        self.host = f"127.0.0.1:{self.port}"
        self.cookie = ""

    @property
    def pid(self) -> int:
        return int(self._process.pid)

    def __enter__(self) -> Desk:
        return self

    def __exit__(self, kind: type[BaseException] | None, error: BaseException | None,
                 trace: TracebackType | None) -> None:
        self._process.send_signal(signal.SIGINT)
        _, messages = self._process.communicate(timeout=60)
        assert self._process.returncode == 0, messages

    def ask(self, method: str, path: str, body: Any = None, **headers: str | None) -> Answer:
        """Sends one request; underscores in names of headers are hyphens, and None leaves a header out."""
        sent: dict[str, str | None] = {"Host": self.host, "Cookie": self.cookie or None}
        if method not in ("GET", "HEAD"):
            sent["Origin"] = f"http://{self.host}"
        if body is not None and not isinstance(body, bytes):
            body = json.dumps(body).encode()
            sent["Content-Type"] = "application/json"
        sent.update({name.replace("_", "-"): value for name, value in headers.items()})
        connection = http.client.HTTPConnection("127.0.0.1", self.port, timeout=30)
        try:
            connection.putrequest(method, path, skip_host=True, skip_accept_encoding=True)
            for name, value in sent.items():
                if value is not None:
                    connection.putheader(name, value)
            if body is not None:
                connection.putheader("Content-Length", str(len(body)))
            connection.endheaders(body)
            return Answer(connection.getresponse())
        finally:
            connection.close()

    def wait_for(self, path: str, condition: Callable[[Any], bool]) -> Any:
        """Asks until the answer is as it should be."""
        for _ in range(600):
            answer = self.ask("GET", path).json()
            if condition(answer):
                return answer
            time.sleep(0.1)
        raise AssertionError(f"{path} stays {answer}")

    def sign_in(self) -> Answer:
        answer = self.ask("POST", "/api/session", {"token": self.token})
        self.cookie = answer.headers.get("Set-Cookie", "").split(";")[0]
        return answer

"""Starts the real index service on a folder and a free port, and talks to it as any client would."""

from __future__ import annotations

import base64
import http.client
import json
import os
import re
import select
import signal
import socket
import sqlite3
import ssl
import subprocess
import tempfile
import threading
import time
import weakref
from collections.abc import Callable, Iterator
from concurrent.futures import ThreadPoolExecutor
from contextlib import closing, contextmanager
from dataclasses import dataclass
from pathlib import Path
from typing import Any, Optional, Union
from urllib.parse import urlsplit

Body = Union[None, str, bytes, dict[str, Any]]
BINARY = Path(os.environ["KESTREL_BUILD_BIN"]) / "kestrel-index"
START_SECONDS = 60.0


def golden(name: str) -> list[str]:
    """The lines of a text file beside this one; indented lines continue the line before."""
    text = (Path(__file__).parent / name).read_text(encoding="utf-8")
    return [line for line in re.sub(r"\n  +", " ", text).splitlines() if line and not line.startswith("#")]


@contextmanager
def meanwhile(*calls: Callable[[], object]) -> Iterator[None]:
    """Repeats each call on a thread of its own until the block ends; what one raises is raised there."""
    ending = threading.Event()

    def repeat(call: Callable[[], object]) -> None:
        while not ending.is_set():
            call()

    with ThreadPoolExecutor(len(calls)) as threads:
        running = [threads.submit(repeat, call) for call in calls]
        try:
            yield
        finally:
            ending.set()
    for one in running:
        one.result()


def trusting_context() -> ssl.SSLContext:
    """For certificates that the service has signed itself."""
    context = ssl.create_default_context()
    context.check_hostname = False
    context.verify_mode = ssl.CERT_NONE
    return context


@dataclass
class Answer:
    status: int
    text: str
    headers: dict[str, str]

    @property
    def json(self) -> Any:
        return json.loads(self.text)

    @property
    def hits(self) -> list[dict[str, Any]]:
        assert self.status == 200, self.text
        hits: list[dict[str, Any]] = self.json["hits"]["hits"]
        return hits

    @property
    def ids(self) -> list[str]:
        return [hit["_id"] for hit in self.hits]

    @property
    def error_type(self) -> str:
        return str(self.json["error"]["type"])

    @property
    def cause(self) -> str:
        """Type and reason of what went wrong at the bottom of it."""
        root = self.json["error"]["root_cause"][0]
        return f"{root['type']}: {root['reason']}"


class Client:
    """One connection, opened when needed and again after it was closed."""

    def __init__(self, uri: str, user: Optional[str], password: str) -> None:
        self.address = urlsplit(uri)
        self.headers = {"Content-Type": "application/json"}
        if user is not None:
            token = base64.b64encode(f"{user}:{password}".encode()).decode()
            self.headers["Authorization"] = f"Basic {token}"
        self.connection = self._connect()

    def _connect(self) -> http.client.HTTPSConnection:
        assert self.address.hostname is not None
        return http.client.HTTPSConnection(
            self.address.hostname, self.address.port, context=trusting_context(), timeout=120
        )

    def __call__(self, method: str, path: str, body: Body = None, **headers: str) -> Answer:
        content = json.dumps(body) if isinstance(body, dict) else body
        if isinstance(content, str):
            content = content.encode()
        self._reopen_if_closed()
        try:
            self.connection.request(method, "/" + path, content, {**self.headers, **headers})
            response = self.connection.getresponse()
            return Answer(response.status, response.read().decode(), dict(response.getheaders()))
        except (OSError, http.client.HTTPException):
            self.connection.close()
            raise

    def close(self) -> None:
        self.connection.close()

    def _reopen_if_closed(self) -> None:
        """The service closes connections that were idle for long, and says so before anything is sent."""
        opened = self.connection.sock
        if opened is not None and select.select([opened], [], [], 0)[0]:
            self.connection.close()


class IndexProcess:
    def __init__(
        self, data: Path, *arguments: str, prepare: Optional[Callable[[], None]] = None, binary: Path = BINARY
    ) -> None:
        self.data = data
        self.workspace = tempfile.TemporaryDirectory()
        self.ready = Path(self.workspace.name) / "ready.json"
        self.log = Path(self.workspace.name) / "log"
        command = [str(binary), "--data", str(data), "--ready-file", str(self.ready)]
        if "--port" not in arguments:
            command += ["--port", "0"]
        with self.log.open("w") as log:
            self.process = subprocess.Popen([*command, *arguments], stderr=log, preexec_fn=prepare)
        self.uri = ""
        self.log_text = ""  # once it has ended
        weakref.finalize(self, self.process.kill)  # a test that fails must not leave it running

    def wait_until_ready(self) -> "IndexProcess":
        deadline = time.monotonic() + START_SECONDS
        while not self.ready.exists():
            assert self.process.poll() is None, self.log.read_text()
            assert time.monotonic() < deadline, "the service did not start"
            time.sleep(0.02)
        self.uri = json.loads(self.ready.read_text())["uri"]
        return self

    def administrator(self) -> tuple[str, str]:
        file = json.loads((self.data / "administrator.json").read_text())
        return file["user"], file["password"]

    def client(self, user: Optional[str] = None, password: str = "") -> Client:
        if user is None:
            user, password = self.administrator()
        return Client(self.uri, user, password)

    def anonymous(self) -> Client:
        return Client(self.uri, None, "")

    @property
    def address(self) -> tuple[str, int]:
        parts = urlsplit(self.uri)
        assert parts.hostname is not None and parts.port is not None
        return parts.hostname, parts.port

    def connect(self) -> ssl.SSLSocket:
        return trusting_context().wrap_socket(socket.create_connection(self.address, timeout=60))

    def kill(self) -> None:
        self.process.kill()
        self.process.wait()

    def stop(self) -> int:
        if self.process.poll() is None:
            self.process.send_signal(signal.SIGTERM)
        code = self.process.wait(timeout=60)
        self.log_text = self.log.read_text()
        self.workspace.cleanup()
        return code


def refusal(data: Path, *arguments: str) -> tuple[int, str]:
    """Exit code and message of a service that is expected not to start."""
    service = IndexProcess(data, *arguments)
    code = service.process.wait(timeout=START_SECONDS)
    message = service.log.read_text()
    service.workspace.cleanup()
    return code, message


class Served:
    """A service of the test's own, with an index, which it may stop, harm and start again."""

    INDEX = "kept_rel"

    def __init__(self, data: Path) -> None:
        self.data = data
        self.start()

    def start(self) -> None:
        self.process = IndexProcess(self.data).wait_until_ready()
        self.client = self.process.client()

    def restart(self, kill: bool = False) -> None:
        if kill:
            self.process.kill()
        else:
            assert self.process.stop() == 0
        self.start()

    def database(self) -> "closing[sqlite3.Connection]":
        return closing(sqlite3.connect(self.data / "documents.db", isolation_level=None))

    def harm(self, *statements: str) -> None:
        """Changes the database behind the service's back."""
        assert self.process.stop() == 0
        with self.database() as database:
            for statement in statements:
                database.execute(statement)
        self.start()

    def __call__(self, method: str, path: str, body: Any = None) -> Answer:
        return self.client(method, f"{self.INDEX}/{path}", body)

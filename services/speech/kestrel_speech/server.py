"""The HTTP server: one socket on the loopback address, several threads, a clean shutdown."""

from __future__ import annotations

import json
import os
import signal
import socket
import sys
from collections.abc import Callable
from pathlib import Path
from types import FrameType
from typing import TYPE_CHECKING, NoReturn, Optional

from waitress.channel import HTTPChannel
from waitress.server import create_server
from waitress.task import ErrorTask

if TYPE_CHECKING:
    from _typeshed.wsgi import WSGIApplication

LOOPBACK = "127.0.0.1"
THREADS = 12
# About two hours of audio; longer clips are uploaded in several chunks.
MAX_REQUEST_BYTES = 320 * 1024 * 1024


class JsonErrorTask(ErrorTask):  # type: ignore[misc]
    """Malformed and oversized requests get a JSON response, too."""

    def execute(self) -> None:
        error = self.request.error
        body = json.dumps({"success": False, "error": f"{error.reason}: {error.body}"}).encode()
        self.status = f"{error.code} {error.reason}"
        self.response_headers.append(("Content-Type", "application/json"))
        self.set_close_on_finish()
        self.content_length = len(body)
        self.write(body)


class Channel(HTTPChannel):  # type: ignore[misc]
    error_task_class = JsonErrorTask


def bind(port: int) -> socket.socket:
    """A listening socket; connections queue until the service is ready."""
    return socket.create_server((LOOPBACK, port), backlog=128)


def write_ready_file(path: Path, uri: str) -> None:
    """Publishes the address and process number; the file appears complete or not at all."""
    partial = path.with_name(f"{path.name}.{os.getpid()}")
    partial.write_text(json.dumps({"uri": uri, "pid": os.getpid()}) + "\n", encoding="utf-8")
    os.replace(partial, path)


def stop_on_signals(before_stop: Callable[[], object]) -> None:
    """SIGTERM and SIGINT end the server's loop; further ones are ignored, so that the shutdown completes."""

    def stop(signum: int, frame: Optional[FrameType]) -> NoReturn:
        signal.signal(signal.SIGTERM, signal.SIG_IGN)
        signal.signal(signal.SIGINT, signal.SIG_IGN)
        before_stop()
        raise SystemExit(0)

    signal.signal(signal.SIGTERM, stop)
    signal.signal(signal.SIGINT, stop)


def serve(
    application: WSGIApplication, listener: socket.socket, ready_file: Optional[Path], before_stop: Callable[[], object]
) -> None:
    """Serves until SIGTERM or SIGINT; requests in progress then have a few seconds to complete."""
    server = create_server(
        application,
        sockets=[listener],
        threads=THREADS,
        ident="kestrel-speech",
        max_request_body_size=MAX_REQUEST_BYTES,
    )
    server.channel_class = Channel
    stop_on_signals(before_stop)
    uri = f"http://{LOOPBACK}:{listener.getsockname()[1]}/"
    if ready_file is not None:
        write_ready_file(ready_file, uri)
    print(f"kestrel-speech: serving {uri}", file=sys.stderr, flush=True)
    try:
        server.run()
    finally:
        if ready_file is not None:
            ready_file.unlink(missing_ok=True)

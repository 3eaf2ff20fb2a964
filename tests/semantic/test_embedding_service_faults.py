"""What becomes of faults of the local service that texts get their vectors from."""

from __future__ import annotations

import json
from http.server import BaseHTTPRequestHandler, HTTPServer
from pathlib import Path
from threading import Thread
from typing import Optional

import pytest
from test_embeddings import SERVICE, embed

LOADED = json.dumps({"success": True})
FAULTS: dict[str, Optional[tuple[int, str]]] = {
    "status 500": (500, '{"error": "made up"}'),
    "HTML": (200, "<html>It works!</html>"),
    "empty": (200, ""),
    "cut": None,
    "another answer": (200, '{"success": false, "status": "ERROR"}'),
    "short vector": (200, json.dumps({"status": "OK", "vectorEmbedding": [0.5] * 511})),
    "no numbers": (200, json.dumps({"status": "OK", "vectorEmbedding": ["x"] * 512})),
}


def serve(replies: list[Optional[tuple[int, str]]]) -> HTTPServer:
    class Handler(BaseHTTPRequestHandler):
        def answer(self) -> None:
            reply = replies.pop(0)
            if reply is None:
                self.close_connection = True
                self.connection.close()
                return
            status, body = reply
            self.send_response(status)
            self.send_header("Content-Type", "application/json")
            self.send_header("Content-Length", str(len(body)))
            self.end_headers()
            self.wfile.write(body.encode())

        do_GET = do_PUT = answer

        def log_message(self, format: str, *args: object) -> None:
            pass

    return HTTPServer(("127.0.0.1", 5000), Handler)


@pytest.mark.parametrize("name", FAULTS)
def test_faults_of_the_service_are_reported(name: str) -> None:
    is_about_the_vector = name in ("short vector", "no numbers")
    replies = [(200, LOADED) if is_about_the_vector else FAULTS[name], FAULTS[name]]
    with serve(replies) as server:
        Thread(target=server.serve_forever, daemon=True).start()
        load, (answer,) = embed(SERVICE, ["a text"], Path("models"), Path("operators"))
        server.shutdown()
    assert (load["load"] == 0) == is_about_the_vector
    assert answer["embed"] != 0 and "KsNN Error" in answer["error"]

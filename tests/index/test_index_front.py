"""Connections and logins: who gives way, what is refused before it is received, what a flood of guesses may do."""

from __future__ import annotations

import base64
import json
import os
import socket
import sqlite3
import ssl
import time
from collections.abc import Callable
from contextlib import closing, suppress
from http.client import HTTPException
from pathlib import Path

import pytest

from index_process import Client, IndexProcess, meanwhile


def head(service: IndexProcess, authorized: bool, *lines: str) -> bytes:
    token = base64.b64encode(":".join(service.administrator()).encode()).decode()
    own = [f"Authorization: Basic {token}"] if authorized else []
    return "\r\n".join([*lines, "Host: x", "Content-Type: application/json", *own, "", ""]).encode()


def answer_of(connection: ssl.SSLSocket) -> bytes:
    received = b""
    while b"\r\n\r\n" not in received and (part := connection.recv(65536)):
        received += part
    return received


@pytest.fixture
def small(data: Path) -> IndexProcess:
    return IndexProcess(data, "--max-clients", "4").wait_until_ready()


def test_silent_connections_give_way(small: IndexProcess) -> None:
    silent = [socket.create_connection(small.address) for _ in range(20)]
    assert small.client()("GET", "").status == 200
    for connection in silent:
        connection.close()
    assert small.stop() == 0


def test_idle_clients_give_way(small: IndexProcess) -> None:
    clients = [small.client() for _ in range(10)]
    assert [client("GET", "").status for client in clients] == [200] * 10
    assert small.stop() == 0


def test_clients_at_work_do_not_give_way(small: IndexProcess) -> None:
    at_work = [small.connect() for _ in range(4)]
    for connection in at_work:
        connection.sendall(head(small, True, "POST /busy_rel/_doc HTTP/1.1", "Content-Length: 9", "Expect: 100-continue"))
        assert b"100 Continue" in answer_of(connection)
    refused = small.client()("GET", "")
    assert (refused.status, refused.error_type) == (429, "es_rejected_execution_exception")
    for connection in at_work:
        connection.sendall(b'{"a": 17}')
        assert b" 201 " in answer_of(connection)
        connection.close()
    assert small.client()("GET", "busy_rel/_count").json["count"] == 4
    assert small.stop() == 0


@pytest.mark.parametrize(("authorized", "lines", "status"), [
    (False, ["POST /x_rel/_doc HTTP/1.1", "Content-Length: 90000000"], b" 401 "),
    (False, ["POST /x_rel/_doc HTTP/1.1", "Transfer-Encoding: chunked"], b" 401 "),
    (True, ["POST /x_rel/_doc HTTP/1.1", "Content-Length: 104857601"], b" 413 "),
    (True, ["POST /%ff/_doc HTTP/1.1", "Content-Length: 90000000"], b" 400 "),
])
def test_refused_before_the_body_is_received(service: IndexProcess, authorized: bool, lines: list[str], status: bytes) -> None:
    with service.connect() as connection:
        connection.sendall(head(service, authorized, *lines))
        assert status in answer_of(connection)


def test_bodies_share_a_budget(data: Path) -> None:
    service = IndexProcess(data, "--max-memory", "3").wait_until_ready()
    with service.connect() as first:
        first.sendall(head(service, True, "POST /x_rel/_doc HTTP/1.1", "Content-Length: 2000000", "Expect: 100-continue"))
        assert b"100 Continue" in answer_of(first)
        other = service.client()("POST", "x_rel/_doc", b'{"a": 1' + b" " * 2_000_000 + b"}")
        assert (other.status, other.error_type) == (429, "circuit_breaking_exception")
    assert service.client()("POST", "x_rel/_doc", b'{"a": 1' + b" " * 1_000_000 + b"}").status == 201
    answer = service.client()("POST", "x_rel/_doc", {"text": "y" * 900_000})
    assert answer.status == 201
    for _ in range(3):
        service.client()("POST", "x_rel/_doc", {"text": "y" * 900_000})
    assert service.client()("GET", "x_rel/_search", {"size": 100}).error_type == "circuit_breaking_exception"
    assert service.client()("GET", "x_rel/_search", {"size": 1}).status == 200
    assert service.stop() == 0


def test_what_a_request_is_parsed_into_shares_the_budget(data: Path) -> None:
    service = IndexProcess(data, "--max-memory", "8").wait_until_ready()
    client = service.client()
    for first in (0, 6000):
        documents = "".join(f'{{"index":{{"_id":"{n}"}}}}\n{{"n":{n}}}\n' for n in range(first, first + 6000))
        assert client("POST", "x_rel/_bulk", documents).status == 200
    script = {"script": {"source": "ctx._source.remove('speakerGuid')"}}
    for path, body in (
        ("new_rel/_bulk", '{"index":{}}\n{}\n' * 20_000),
        ("new_rel/_doc", json.dumps({"text": "y " * 600_000})),
        ("new_rel/_doc", json.dumps({"several": [1] * 200_000})),
        ("x_rel/_search", json.dumps({"sort": ["n"] * 200})),
        ("x_rel/_update_by_query", json.dumps({"query": {"match_all": {}}, **script})),
    ):
        answer = client("POST", path, body)
        assert answer.status == 429 and "circuit_breaking_exception" in answer.text, path
    assert client("GET", "new_rel").status == 404
    assert client("GET", "x_rel/_doc/1").json["_version"] == 1
    assert service.stop() == 0


def test_chunked_bodies(service: IndexProcess, index: str) -> None:
    with service.connect() as connection:
        connection.sendall(head(service, True, f"POST /{index}/_doc/chunked HTTP/1.1", "Transfer-Encoding: chunked"))
        for part in (b'{"a":', b" 1", b"}"):
            connection.sendall(b"%x\r\n%s\r\n" % (len(part), part))
        connection.sendall(b"0\r\n\r\n")
        assert b" 201 " in answer_of(connection)


def test_bodies_without_a_length_are_none(service: IndexProcess) -> None:
    with service.connect() as connection:
        connection.sendall(head(service, True, "GET / HTTP/1.1") * 2)
        assert b" 200 " in answer_of(connection)


def test_failed_logins_are_logged(data: Path) -> None:
    service = IndexProcess(data).wait_until_ready()
    assert service.client('evil"\nname', "guess")("GET", "").status == 401
    assert service.stop() == 0
    lines = [line for line in service.log_text.splitlines() if "failed login" in line]
    assert len(lines) == 1 and r'"evil\"\nname"' in lines[0]


def test_guesses_do_not_hold_up_a_login(service: IndexProcess, client: Client) -> None:
    """A login waits for the guesses that are being checked, not for all that wait."""
    assert client("PUT", "_security/user/late", {"password": "late password", "roles": ["superuser"]}).status == 200
    checked = [0] * 40

    def guessing(number: int) -> Callable[[], None]:
        guesser = service.client("kestrel_admin", os.urandom(8).hex())

        def guess() -> None:
            with suppress(OSError, HTTPException):  # may have to give way
                assert guesser("GET", "").status == 401
            checked[number] += 1

        return guess

    with meanwhile(*map(guessing, range(len(checked)))):
        while sum(checked) < 3:
            time.sleep(0.01)
        before = sum(checked)
        assert service.client("late", "late password")("GET", "").status == 200
        assert sum(checked) - before < len(checked) / 2
    client("DELETE", "_security/user/late")


def test_passwords_are_hashed_with_scrypt(service: IndexProcess, client: Client) -> None:
    with closing(sqlite3.connect(f"file:{service.data / 'documents.db'}?mode=ro", uri=True)) as database:
        (body,) = database.execute("SELECT body FROM security WHERE kind = 'user'").fetchone()
    assert '"cost":32768' in body

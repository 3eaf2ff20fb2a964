"""Requests and clients that ask too much get a clear answer, and the service lives."""

from __future__ import annotations

import socket
import ssl
from contextlib import suppress
from pathlib import Path

import pytest

from index_process import Client, IndexProcess


def test_body_over_the_limit(service: IndexProcess, index: str) -> None:
    answer = service.client()("POST", f"{index}/_doc", b" " * (100 * 1024 * 1024 + 1))
    assert (answer.status, answer.error_type) == (413, "content_too_long_exception")


@pytest.mark.parametrize(
    ("body", "reason"),
    [
        ("[" * 501, "nested more than [500] levels"),
        ('{"a":' * 100_000, "nested more than [500] levels"),
        ("{" + ",".join(f'"k{n}":{n}' for n in range(20_000)) + "}", "more than [10000] keys"),
        ('{"a": "\ud800"}'.encode("utf-8", "surrogatepass"), "ill-formed UTF-8"),
    ],
)
def test_hostile_json(client: Client, index: str, body: str | bytes, reason: str) -> None:
    for path in (f"{index}/_doc", f"{index}/_search"):
        answer = client("POST", path, body)
        assert answer.status == 400 and reason in answer.cause


def test_too_many_fields(client: Client, index: str) -> None:
    answer = client("POST", f"{index}/_doc", {f"field{n}": n for n in range(2000)})
    assert answer.status == 400 and "Limit of total fields [1000]" in answer.cause


def test_identifier_length(client: Client, index: str) -> None:
    longest = "я" * 256
    assert client("PUT", f"{index}/_doc/{'%D1%8F' * 256}", {"a": 1}).json["_id"] == longest
    answer = client("PUT", f"{index}/_doc/{'%D1%8F' * 257}", {"a": 1})
    assert answer.status == 400 and "no longer than 512 bytes but was: 514" in answer.cause


def test_endless_request_line(service: IndexProcess) -> None:
    answer = service.client()("GET", "x" * 20_000)
    assert (answer.status, answer.error_type) == (400, "too_long_http_line_exception")


def test_too_many_scrolls(service: IndexProcess, client: Client, index: str) -> None:
    client("POST", f"{index}/_bulk", '{"create":{}}\n{"a":1}\n' * 2)
    opened = [client("GET", f"{index}/_search?scroll=1m", {"size": 1}) for _ in range(501)]
    assert [answer.status for answer in opened] == [200] * 500 + [429]
    assert client("DELETE", "_search/scroll", {"scroll_id": "_all"}).json["num_freed"] >= 500
    # A scroll that has shown everything holds nothing and does not count.
    assert all(client("GET", f"{index}/_search?scroll=1m", {"size": 9}).status == 200 for _ in range(501))


def test_too_many_clients(data: Path) -> None:
    service = IndexProcess(data, "--max-clients", "4").wait_until_ready()
    clients = [service.client() for _ in range(5)]
    answers = [client("GET", "") for client in clients]
    assert [answer.status for answer in answers] == [200] * 4 + [429]
    clients[0].close()
    assert service.stop() == 0


def test_bytes_that_are_no_request(service: IndexProcess) -> None:
    port = int(service.uri.rstrip("/").rsplit(":", 1)[1])
    context = ssl.create_default_context()
    context.check_hostname = False
    context.verify_mode = ssl.CERT_NONE
    for garbage in (b"\x00\xff" * 1000 + b"\r\n\r\n", b"GET\r\n\r\n", b"GET / HTTP/1.1\r\n" + b"A: b\r\n" * 10_000 + b"\r\n"):
        with socket.create_connection(("127.0.0.1", port)) as plain, context.wrap_socket(plain) as secure:
            secure.sendall(garbage)
            assert b" 200 " not in secure.recv(4096)[:20]
    with socket.create_connection(("127.0.0.1", port)) as plain:
        plain.sendall(b"GET / HTTP/1.1\r\n\r\n")
        with suppress(ConnectionResetError):
            assert not plain.recv(4096).startswith(b"HTTP")
    assert service.client()("GET", "").status == 200

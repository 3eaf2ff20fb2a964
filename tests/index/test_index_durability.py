"""What survives kills, and which folders and addresses are refused."""

from __future__ import annotations

import json
import os
import random
import socket
import sqlite3
import threading
import time
from collections.abc import Callable, Iterator
from contextlib import closing
from http.client import HTTPException
from pathlib import Path
from typing import Optional

import pytest

from index_process import Client, IndexProcess, refusal

INDEX = "durable_rel"
DATA_FOLDER, ADDRESS = 3, 4


class Writer(threading.Thread):
    """Creates, updates and deletes documents until the service goes away; remembers what was acknowledged."""

    def __init__(self, client: Client, name: str) -> None:
        super().__init__()
        self.client = client
        self.name = name
        self.random = random.Random(name)
        self.acknowledged: dict[str, Optional[int]] = {}
        self.in_doubt: dict[str, Optional[int]] = {}
        self.count = 0

    def run(self) -> None:
        try:
            for number in range(1_000_000):
                self.write([f"{self.name}-{number}"], number)
                known = f"{self.name}-{self.random.randrange(number + 1)}"
                kind = number % 4
                if kind == 0:
                    self.delete(known)
                elif kind == 1:
                    self.write([f"{self.name}-b{number}-{part}" for part in range(20)], number)
                else:
                    self.write([known], -number)
        except (OSError, HTTPException):
            pass

    def write(self, keys: list[str], value: int) -> None:
        self.in_doubt = dict.fromkeys(keys, value)
        body = {"value": value, "mediaGuid": self.name, "transcript": "the text of a document"}
        if len(keys) == 1:
            assert self.client("POST", f"{INDEX}/_doc/{keys[0]}", body).status in (200, 201)
        else:
            lines = "".join(f'{{"index":{{"_id":"{key}"}}}}\n{json.dumps(body)}\n' for key in keys)
            assert not self.client("POST", f"{INDEX}/_bulk", lines).json["errors"]
        self.settle()

    def delete(self, key: str) -> None:
        self.in_doubt = {key: None}
        assert self.client("DELETE", f"{INDEX}/_doc/{key}").status in (200, 404)
        self.settle()

    def settle(self) -> None:
        self.acknowledged.update(self.in_doubt)
        self.in_doubt = {}
        self.count += 1


def stored(client: Client) -> dict[str, int]:
    page = client("GET", f"{INDEX}/_search?scroll=1m", {"size": 5000})
    found: dict[str, int] = {}
    while page.hits:
        for hit in page.hits:
            assert hit["_id"] not in found, "a document is there twice"
            found[hit["_id"]] = hit["_source"]["value"]
        page = client("POST", "_search/scroll", {"scroll_id": page.json["_scroll_id"], "scroll": "1m"})
    return found


def test_killed_at_any_moment_loses_nothing_acknowledged(data: Path) -> None:
    rounds = int(os.environ.get("KESTREL_KILL_ROUNDS", "4"))
    seed = os.environ.get("KESTREL_KILL_SEED", "1")
    expected: dict[str, int] = {}
    choice = random.Random(seed)
    acknowledged = 0
    for round_number in range(rounds):
        service = IndexProcess(data).wait_until_ready()
        writers = [Writer(service.client(), f"w{seed}-{round_number}-{n}") for n in range(8)]
        for writer in writers:
            writer.start()
        wanted = choice.randrange(20, 200)
        while sum(writer.count for writer in writers) < wanted:
            time.sleep(0.001)
        service.kill()
        for writer in writers:
            writer.join()

        service = IndexProcess(data).wait_until_ready()
        found = stored(service.client())
        for writer in writers:
            for key, value in writer.acknowledged.items():
                if value is None:
                    expected.pop(key, None)
                else:
                    expected[key] = value
            # A request that was not answered is there whole or not at all.
            before = {key: expected.get(key) for key in writer.in_doubt}
            now = {key: found.get(key) for key in writer.in_doubt}
            assert now in (before, writer.in_doubt)
            for key, kept in now.items():
                if kept is None:
                    expected.pop(key, None)
                else:
                    expected[key] = kept
        assert found == expected
        count = service.client()("POST", f"{INDEX}/_count", {"query": {"match": {"transcript": "text"}}})
        assert count.json["count"] == len(expected)
        assert service.stop() == 0
        acknowledged += sum(writer.count for writer in writers)
    print(f"seed {seed}: {rounds} kills, {acknowledged} acknowledged requests, {len(expected)} documents")


def test_folder_and_port_are_taken_once(data: Path, tmp_path: Path) -> None:
    service = IndexProcess(data).wait_until_ready()
    code, message = refusal(data)
    assert code == DATA_FOLDER and "in use by another process" in message
    port = service.address[1]
    code, message = refusal(tmp_path / "other", "--port", str(port))
    assert code == ADDRESS and f"cannot listen on 127.0.0.1:{port}" in message
    assert service.client()("GET", "").status == 200
    assert service.stop() == 0


@pytest.fixture
def filled(data: Path) -> Iterator[Path]:
    service = IndexProcess(data).wait_until_ready()
    client = service.client()
    lines = "".join(f'{{"create":{{}}}}\n{{"transcript":"words {n}"}}\n' for n in range(500))
    assert not client("PUT", f"{INDEX}/_bulk", lines).json["errors"]
    assert service.stop() == 0
    yield data


def patched(file: Path, begin: int, end: int, content: bytes) -> None:
    whole = bytearray(file.read_bytes())
    whole[begin:end] = content
    file.write_bytes(whole)


def run_sql(file: Path, statement: str) -> None:
    with closing(sqlite3.connect(file, isolation_level=None)) as database:
        database.execute(statement)


@pytest.mark.parametrize("spoil", [
    lambda file: patched(file, 0, 16, b"not a database.."),
    lambda file: patched(file, 8192, -4096, bytes(file.stat().st_size - 8192 - 4096)),
    lambda file: run_sql(file, "PRAGMA user_version = 99"),
    lambda file: (file.unlink(), run_sql(file, "CREATE TABLE bookmarks (url TEXT)")),
], ids=["header", "pages", "from the future", "of another program"])
def test_damaged_folder_is_refused_and_left_alone(filled: Path, spoil: Callable[[Path], object]) -> None:
    spoil(filled / "documents.db")
    before = (filled / "documents.db").read_bytes()
    code, message = refusal(filled)
    assert code == DATA_FOLDER and "nothing was changed" in message
    assert (filled / "documents.db").read_bytes() == before


def test_foreign_folder_is_refused(data: Path) -> None:
    data.mkdir()
    (data / "holiday.jpg").write_bytes(b"not ours")
    code, message = refusal(data)
    assert code == DATA_FOLDER and "holiday.jpg" in message
    assert [file.name for file in data.iterdir()] == ["holiday.jpg"]


def test_other_addresses_are_not_served(service: IndexProcess) -> None:
    with pytest.raises(OSError):
        socket.create_connection(("127.0.0.2", service.address[1]), timeout=5)

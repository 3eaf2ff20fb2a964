"""Who may do what."""

from __future__ import annotations

import stat
from collections.abc import Iterator

import pytest

from index_process import Client, IndexProcess

NAME, PASSWORD = "reader_dbg", "correct horse"


@pytest.fixture
def limited(service: IndexProcess, client: Client) -> Iterator[Client]:
    """A user that may do everything with the indices of one suffix."""
    role = {"cluster": ["monitor"], "indices": [{"names": ["*_dbg"], "privileges": ["all"]}]}
    client("PUT", "_security/role/dbg_access", role)
    client("POST", f"_security/user/{NAME}", {"password": PASSWORD, "roles": ["dbg_access"]})
    yield service.client(NAME, PASSWORD)
    client("DELETE", f"_security/user/{NAME}")
    client("DELETE", "_security/role/dbg_access")


def test_secrets_are_for_the_owner_alone(service: IndexProcess) -> None:
    for name in ("administrator.json", "private-key.pem"):
        assert stat.S_IMODE((service.data / name).stat().st_mode) == 0o600
    assert stat.S_IMODE(service.data.stat().st_mode) == 0o700
    assert service.administrator()[1].encode() not in (service.data / "documents.db").read_bytes()
    assert service.uri.startswith("https://127.0.0.1:")


@pytest.mark.parametrize(
    ("user", "password"),
    [(None, ""), ("kestrel_admin", "wrong"), ("kestrel_admin", ""), ("nobody", "x"), ("transcript_user_dbg", "Wq3ZbN8yPc2Lx6")],
)
def test_unknown_credentials(service: IndexProcess, user: str | None, password: str) -> None:
    client = service.anonymous() if user is None else service.client(user, password)
    answer = client("GET", "")
    assert (answer.status, answer.error_type) == (401, "security_exception")
    assert answer.headers["WWW-Authenticate"].startswith("Basic ")


def test_malformed_authorization(service: IndexProcess) -> None:
    for header in ("Basic", "Basic !!!", "Bearer abc", "Basic bm9jb2xvbg=="):
        assert service.anonymous()("GET", "", Authorization=header).status == 401


def test_users_are_shown_without_their_password(client: Client, limited: Client) -> None:
    assert limited("GET", "").status == 200
    assert "password" not in client("GET", f"_security/user/{NAME}").text


def test_scrolls_belong_to_their_user(client: Client, limited: Client) -> None:
    client("POST", "mine_dbg/_doc", {"a": 1})
    scroll = client("GET", "mine_dbg/_search?scroll=1m", {"size": 1}).json["_scroll_id"]
    assert limited("POST", "_search/scroll", {"scroll_id": scroll}).status == 404
    client("DELETE", "mine_dbg")

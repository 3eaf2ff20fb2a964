"""The kestrel executable, run as a user runs it."""

from __future__ import annotations

import base64
import json
import os
import ssl
import subprocess
import urllib.request
from dataclasses import dataclass
from pathlib import Path
from typing import Any

BIN = Path(os.environ["KESTREL_BUILD_BIN"])
SPEECH = Path(os.environ["KESTREL_DEPS_DIR"]) / "speech"
TRANSCRIPTS = "transcript_oai_small_multi_index_rel"


@dataclass(frozen=True)
class Result:
    """How one run ended."""

    code: int
    out: str
    err: str

    def json(self) -> Any:
        return json.loads(self.out)


class Kestrel:
    """One home with its services."""

    def __init__(self, home: Path) -> None:
        self.home = home
        self.environment = {**os.environ, "KESTREL_HOME": str(home)}

    def start(self, *arguments: object) -> subprocess.Popen[str]:
        words = [argument if isinstance(argument, bytes) else str(argument) for argument in arguments]
        return subprocess.Popen([BIN / "kestrel", *words], stdout=subprocess.PIPE, stderr=subprocess.PIPE,
                                stdin=subprocess.DEVNULL, text=True, env=self.environment)

    def run(self, *arguments: object) -> Result:
        process = self.start(*arguments)
        out, err = process.communicate(timeout=600)
        return Result(process.returncode, out, err)

    def good(self, *arguments: object) -> Result:
        result = self.run(*arguments)
        assert result.code == 0, result.err
        return result

    def fails(self, *arguments: object, code: int = 1) -> str:
        """Runs a command that must end with this code; returns its standard error."""
        result = self.run(*arguments)
        assert result.code == code, result.err
        return result.err

    def up(self) -> Result:
        return self.good("up", "--index-port", 0, "--speech-port", 0)

    def pids(self) -> dict[str, int]:
        status = self.run("status", "--json").json()
        return {name: status[name]["pid"] for name in ("index", "speech") if status[name]["running"]}

    def index(self, method: str, path: str, body: Any = None) -> Any:
        """Sends a request straight to the index service."""
        account = json.loads((self.home / "index/administrator.json").read_text())
        uri = json.loads((self.home / "services.json").read_text())["index"]["uri"]
        login = base64.b64encode(f"{account['user']}:{account['password']}".encode()).decode()
        data = None if body is None else (body if isinstance(body, str) else json.dumps(body)).encode()
        headers = {"Authorization": f"Basic {login}", "Content-Type": "application/json"}
        request = urllib.request.Request(uri + path, data, headers, method=method)
        with urllib.request.urlopen(request, context=ssl._create_unverified_context(), timeout=10) as answer:
            return json.load(answer)


def make_media(target: Path, *arguments: object) -> Path:
    """Makes a file with ffmpeg."""
    subprocess.run(["ffmpeg", "-v", "error", "-y", *map(str, arguments), str(target)], check=True)
    return target


def segment_documents(kestrel: Kestrel, clip: str) -> list[Any]:
    query = {"query": {"term": {"mediaGuid.keyword": clip}}, "size": 100, "sort": [{"segment": "asc"}]}
    kestrel.index("POST", f"{TRANSCRIPTS}/_refresh")
    return list(kestrel.index("POST", f"{TRANSCRIPTS}/_search", query)["hits"]["hits"])

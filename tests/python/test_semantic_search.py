"""Text embeddings, with small models made on the spot and run by the real runtime."""

from __future__ import annotations

import importlib.util
from pathlib import Path
from typing import Any

import numpy as np
import onnx
import onnxruntime_extensions
import pytest
from conftest import ROOT
from onnx import TensorProto, helper


def save(path: Path, nodes: list[Any], inputs: list[Any], outputs: list[Any]) -> None:
    opsets = [helper.make_opsetid("", 17), helper.make_opsetid("ai.onnx.ml", 3)]
    graph = helper.make_graph(nodes, path.stem, inputs, outputs)
    onnx.save(helper.make_model(graph, opset_imports=opsets, ir_version=8), path)


def save_text_model(path: Path, image_type: int) -> None:
    """Embeds a text as its token ids, once for each picture element that is zero, as all should be."""
    nodes = [
        helper.make_node("Cast", ["input_ids"], ["ids"], to=TensorProto.FLOAT),
        helper.make_node("Cast", ["pixel_values"], ["pixels"], to=TensorProto.FLOAT),
        helper.make_node("ReduceMax", ["pixels"], ["brightest"], keepdims=0),
        helper.make_node("Add", ["ids", "brightest"], ["text_embeds"]),
    ]
    inputs = [
        helper.make_tensor_value_info("pixel_values", image_type, ["n", 3, 224, 224]),
        helper.make_tensor_value_info("input_ids", TensorProto.INT64, ["n", 77]),
    ]
    save(path, nodes, inputs, [helper.make_tensor_value_info("text_embeds", TensorProto.FLOAT, ["n", 77])])


@pytest.fixture
def semantic() -> Any:
    source = ROOT / "kestrelml" / "pySources" / "SemanticSearch" / "semantic_search.py"
    spec = importlib.util.spec_from_file_location("semantic_under_test", source)
    assert spec is not None and spec.loader is not None
    module = importlib.util.module_from_spec(spec)
    spec.loader.exec_module(module)
    return module


@pytest.fixture
def models(tmp_path: Path) -> dict[str, Any]:
    words = helper.make_node(
        "LabelEncoder", ["text"], ["ids"], domain="ai.onnx.ml",
        keys_strings=["cat", "dog"], values_int64s=[7, 9], default_int64=3,
    )  # fmt: skip
    texts = [helper.make_tensor_value_info("text", TensorProto.STRING, [1])]
    ids = [helper.make_tensor_value_info("ids", TensorProto.INT64, [1])]
    save(tmp_path / "xlm_roberta_base_tokenizer.onnx", [words], texts, ids)
    save_text_model(tmp_path / "openclip_model_uint8.onnx", TensorProto.FLOAT)
    save_text_model(tmp_path / "openclip_model_fp16.onnx", TensorProto.FLOAT16)
    library = onnxruntime_extensions.get_library_path().encode()
    return {"modelDir": str(tmp_path), "onnxRTExtLibPath": library}


@pytest.mark.parametrize("fp16", [False, True])
def test_embedding(semantic: Any, models: dict[str, Any], fp16: bool) -> None:
    assert semantic.set_semantic_search_model_dir_func(models, fp16) == {"success": True}
    assert semantic.openclip8bit is not fp16 and semantic.onnxRTExtLibPath == models["onnxRTExtLibPath"]
    answer = semantic.get_vector_embedding_from_text({"query": "dog"})
    assert list(answer) == ["status", "vectorEmbedding"] and answer["status"] == "OK"
    expected = np.array([9] + [1] * 76) / np.sqrt(81 + 76)
    assert np.allclose(answer["vectorEmbedding"], expected) and type(answer["vectorEmbedding"][0]) is float
    rows = semantic.encode_texts(["cat", "dog", "?"])
    assert np.allclose(np.linalg.norm(rows, axis=1), 1) and np.allclose(rows[1], expected)
    assert rows[0][0] > rows[2][0] > rows[2][1]


class ScriptedTokenizer:
    """Gives as many ids as the text says."""

    def get_inputs(self) -> list[Any]:
        return [type("Input", (), {"name": "texts"})]

    def run(self, outputs: None, feed: dict[str, list[str]]) -> list[Any]:
        (text,) = feed["texts"]
        return [np.arange(2, 2 + int(text), dtype=np.int32), np.zeros(3)]


def test_token_rows_are_padded_and_cut(semantic: Any) -> None:
    rows = semantic.tokenizer(ScriptedTokenizer(), ["10", "100", "77"])
    assert rows.shape == (3, 77)
    assert rows[0].tolist() == [*range(2, 12), *[1] * 67]
    assert rows[1].tolist() == rows[2].tolist() == list(range(2, 79))


def test_failures_leave_as_exceptions(semantic: Any, models: dict[str, Any]) -> None:
    with pytest.raises(RuntimeError, match="not loaded"):
        semantic.get_vector_embedding_from_text({"query": "cat"})
    for missing in models:
        with pytest.raises(KeyError, match=missing):
            semantic.set_semantic_search_model_dir_func({name: models[name] for name in models if name != missing})
    with pytest.raises(Exception, match="openclip_model_uint8"):
        semantic.set_semantic_search_model_dir_func({**models, "modelDir": "nowhere"})
    assert semantic.ort_tokenizer_session is None

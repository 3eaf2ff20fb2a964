"""The module of semantic search as far as no model is needed; tests/semantic runs it with the real ones."""

from __future__ import annotations

from pathlib import Path
from typing import Any

import numpy as np
import onnxruntime_extensions
import pytest
from SemanticSearch import semantic_search


class ScriptedTokenizer:
    """Gives as many ids as the text says."""

    def get_inputs(self) -> list[Any]:
        return [type("Input", (), {"name": "texts"})]

    def run(self, outputs: None, feed: dict[str, list[str]]) -> list[Any]:
        (text,) = feed["texts"]
        return [np.arange(2, 2 + int(text), dtype=np.int32), np.zeros(3)]


def test_token_rows_are_padded_and_cut() -> None:
    rows = semantic_search.tokenizer(ScriptedTokenizer(), ["10", "100", "77"])
    assert rows.shape == (3, 77)
    assert rows[0].tolist() == [*range(2, 12), *[1] * 67]
    assert rows[1].tolist() == rows[2].tolist() == list(range(2, 79))


def test_failures_leave_as_exceptions(tmp_path: Path) -> None:
    with pytest.raises(RuntimeError, match="not loaded"):
        semantic_search.get_vector_embedding_from_text({"query": "cat"})
    models = {"modelDir": str(tmp_path), "onnxRTExtLibPath": onnxruntime_extensions.get_library_path().encode()}
    for missing in models:
        with pytest.raises(KeyError, match=missing):
            semantic_search.set_semantic_search_model_dir_func({name: models[name] for name in models if name != missing})
    with pytest.raises(Exception, match="openclip_model_uint8"):
        semantic_search.set_semantic_search_model_dir_func(models)

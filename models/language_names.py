"""English and native names of the languages that speech recognisers know, and the table made of them."""

from __future__ import annotations

import json
from collections.abc import Sequence
from pathlib import Path

# The code that has the recogniser find the language.
DETECT = {"auto": {"language": "Found from the speech", "local": "Automatic"}}

# Codes are the recogniser's own: "jw" stands for Javanese.
NAMES: dict[str, tuple[str, str]] = {
    "af": ("Afrikaans", "Afrikaans"),
    "am": ("Amharic", "አማርኛ"),
    "ar": ("Arabic", "العربية"),
    "as": ("Assamese", "অসমীয়া"),
    "az": ("Azerbaijani", "Azərbaycanca"),
    "ba": ("Bashkir", "Башҡортса"),
    "be": ("Belarusian", "Беларуская"),
    "bg": ("Bulgarian", "Български"),
    "bn": ("Bengali", "বাংলা"),
    "bo": ("Tibetan", "བོད་སྐད"),
    "br": ("Breton", "Brezhoneg"),
    "bs": ("Bosnian", "Bosanski"),
    "ca": ("Catalan", "Català"),
    "cs": ("Czech", "Čeština"),
    "cy": ("Welsh", "Cymraeg"),
    "da": ("Danish", "Dansk"),
    "de": ("German", "Deutsch"),
    "el": ("Greek", "Ελληνικά"),
    "en": ("English", "English"),
    "es": ("Spanish", "Español"),
    "et": ("Estonian", "Eesti"),
    "eu": ("Basque", "Euskara"),
    "fa": ("Persian", "فارسی"),
    "fi": ("Finnish", "Suomi"),
    "fo": ("Faroese", "Føroyskt"),
    "fr": ("French", "Français"),
    "gl": ("Galician", "Galego"),
    "gu": ("Gujarati", "ગુજરાતી"),
    "ha": ("Hausa", "Hausa"),
    "haw": ("Hawaiian", "ʻŌlelo Hawaiʻi"),
    "he": ("Hebrew", "עברית"),
    "hi": ("Hindi", "हिन्दी"),
    "hr": ("Croatian", "Hrvatski"),
    "ht": ("Haitian Creole", "Kreyòl ayisyen"),
    "hu": ("Hungarian", "Magyar"),
    "hy": ("Armenian", "Հայերեն"),
    "id": ("Indonesian", "Bahasa Indonesia"),
    "is": ("Icelandic", "Íslenska"),
    "it": ("Italian", "Italiano"),
    "ja": ("Japanese", "日本語"),
    "jw": ("Javanese", "Basa Jawa"),
    "ka": ("Georgian", "ქართული"),
    "kk": ("Kazakh", "Қазақша"),
    "km": ("Khmer", "ខ្មែរ"),
    "kn": ("Kannada", "ಕನ್ನಡ"),
    "ko": ("Korean", "한국어"),
    "la": ("Latin", "Latina"),
    "lb": ("Luxembourgish", "Lëtzebuergesch"),
    "ln": ("Lingala", "Lingála"),
    "lo": ("Lao", "ລາວ"),
    "lt": ("Lithuanian", "Lietuvių"),
    "lv": ("Latvian", "Latviešu"),
    "mg": ("Malagasy", "Malagasy"),
    "mi": ("Māori", "Te reo Māori"),
    "mk": ("Macedonian", "Македонски"),
    "ml": ("Malayalam", "മലയാളം"),
    "mn": ("Mongolian", "Монгол"),
    "mr": ("Marathi", "मराठी"),
    "ms": ("Malay", "Bahasa Melayu"),
    "mt": ("Maltese", "Malti"),
    "my": ("Burmese", "မြန်မာ"),
    "ne": ("Nepali", "नेपाली"),
    "nl": ("Dutch", "Nederlands"),
    "nn": ("Norwegian Nynorsk", "Norsk nynorsk"),
    "no": ("Norwegian", "Norsk"),
    "oc": ("Occitan", "Occitan"),
    "pa": ("Punjabi", "ਪੰਜਾਬੀ"),
    "pl": ("Polish", "Polski"),
    "ps": ("Pashto", "پښتو"),
    "pt": ("Portuguese", "Português"),
    "ro": ("Romanian", "Română"),
    "ru": ("Russian", "Русский"),
    "sa": ("Sanskrit", "संस्कृतम्"),
    "sd": ("Sindhi", "سنڌي"),
    "si": ("Sinhala", "සිංහල"),
    "sk": ("Slovak", "Slovenčina"),
    "sl": ("Slovenian", "Slovenščina"),
    "sn": ("Shona", "chiShona"),
    "so": ("Somali", "Soomaali"),
    "sq": ("Albanian", "Shqip"),
    "sr": ("Serbian", "Српски"),
    "su": ("Sundanese", "Basa Sunda"),
    "sv": ("Swedish", "Svenska"),
    "sw": ("Swahili", "Kiswahili"),
    "ta": ("Tamil", "தமிழ்"),
    "te": ("Telugu", "తెలుగు"),
    "tg": ("Tajik", "Тоҷикӣ"),
    "th": ("Thai", "ไทย"),
    "tk": ("Turkmen", "Türkmençe"),
    "tl": ("Tagalog", "Tagalog"),
    "tr": ("Turkish", "Türkçe"),
    "tt": ("Tatar", "Татарча"),
    "uk": ("Ukrainian", "Українська"),
    "ur": ("Urdu", "اردو"),
    "uz": ("Uzbek", "Oʻzbekcha"),
    "vi": ("Vietnamese", "Tiếng Việt"),
    "yi": ("Yiddish", "ייִדיש"),
    "yo": ("Yoruba", "Èdè Yorùbá"),
    "yue": ("Cantonese", "粵語"),
    "zh": ("Chinese", "中文"),
}


def write_table(codes: Sequence[str], path: Path) -> None:
    """Writes "Languages.json": {code: {"language": English name, "local": native name}} for these codes, and for the
    one that has the language found."""
    unnamed = [code for code in codes if code not in NAMES]
    if unnamed:
        raise ValueError(f"the recogniser knows languages without a name here: {', '.join(unnamed)}")
    table = {code: {"language": NAMES[code][0], "local": NAMES[code][1]} for code in codes} | DETECT
    path.write_text(json.dumps(table, ensure_ascii=False, indent=1) + "\n", encoding="utf-8")

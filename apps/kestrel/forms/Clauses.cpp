#include "apps/kestrel/forms/Clauses.h"

#include <unicode/uchar.h>
#include <unicode/uniset.h>
#include <unicode/unistr.h>

#include <map>
#include <set>

namespace kestrel {

namespace {

struct SmallWords {
    std::set<std::string> links;   ///< They begin a clause.
    std::set<std::string> openers; ///< They lean on the next word.
};

const SmallWords& smallWords(const std::string& language) {
    static const std::map<std::string, SmallWords> lists{
        {"en",
         {{"and", "but", "or", "because",  "that",   "which", "who",   "when",   "where", "while",
           "if",  "so",  "as", "although", "though", "since", "until", "unless", "than",  "whether"},
          {"a",     "an",    "the",  "of",   "to",  "in",  "on",  "at",  "for",   "from",
           "with",  "by",    "my",   "your", "his", "her", "its", "our", "their", "this",
           "these", "those", "very", "not",  "no",  "mr",  "mrs", "dr"}}},
        {"de",
         {{"und", "aber", "oder", "denn", "weil", "dass", "wenn", "als", "ob", "während", "obwohl", "damit",
           "wo", "sondern", "bevor", "nachdem"},
          {"der",   "die",   "das",   "den", "dem", "des", "ein", "eine", "einen",
           "einem", "einer", "eines", "in",  "im",  "an",  "am",  "auf",  "aus",
           "bei",   "mit",   "von",   "vom", "zu",  "zum", "zur", "für",  "nicht"}}},
        {"fr",
         {{"et", "mais", "ou", "car", "que", "qui", "parce", "quand", "lorsque", "si", "comme", "dont", "où",
           "puisque", "donc"},
          {"le",  "la",  "les",  "un",  "une",  "des", "du",   "de",   "à",  "au",
           "aux", "en",  "dans", "sur", "pour", "par", "avec", "sans", "ce", "cette",
           "ces", "mon", "ma",   "mes", "son",  "sa",  "ses",  "ne",   "se"}}},
        {"es",
         {{"y", "e", "pero", "o", "porque", "que", "cuando", "si", "como", "donde", "aunque", "mientras",
           "pues", "sino"},
          {"el", "la",  "los", "las",  "un",  "una", "unos", "unas", "de",  "del", "a", "al",
           "en", "con", "por", "para", "sin", "su",  "sus",  "mi",   "mis", "no",  "se"}}},
        {"it",
         {{"e", "ed", "ma", "o", "perché", "che", "quando", "se", "come", "dove", "mentre", "quindi", "però",
           "anche"},
          {"il", "lo", "la",   "i",  "gli", "le", "un",  "uno",   "una", "di", "del", "della", "dei",
           "a",  "al", "alla", "da", "dal", "in", "nel", "nella", "con", "su", "per", "non",   "si"}}},
        {"pt",
         {{"e", "mas", "ou", "porque", "que", "quando", "se", "como", "onde", "embora", "enquanto"},
          {"o", "a", "os", "as", "um", "uma", "de", "do", "da", "dos", "das", "em", "no", "na", "com", "por",
           "para", "sem", "não"}}},
        {"nl",
         {{"en", "maar", "of", "want", "omdat", "dat", "die", "als", "wanneer", "terwijl", "hoewel", "toen"},
          {"de", "het", "een", "van", "in", "op", "aan", "met", "voor", "bij", "naar", "uit", "niet"}}},
        {"ru",
         {{"и", "а", "но", "или", "что", "чтобы", "когда", "если", "как", "где", "потому", "который",
           "которая", "которые"},
          {"в", "во", "на", "с", "со", "к", "ко", "о", "об", "у", "из", "за", "по", "для", "от", "до",
           "не"}}},
        {"cs",
         {{"a", "ale", "nebo", "protože", "že", "když", "jestli", "jak", "kde", "který", "která", "které",
           "aby"},
          {"v", "ve", "na", "s", "se", "k", "ke", "o", "u", "z", "ze", "za", "po", "pro", "od", "do", "ne"}}},
    };
    static const SmallWords none;
    const auto found = lists.find(language.substr(0, language.find_first_of("-_")));
    return found == lists.end() ? none : found->second;
}

/// The word in lower case without the punctuation around it.
std::string bare(const std::string& word) {
    icu::UnicodeString text = icu::UnicodeString::fromUTF8(word);
    int begin = 0;
    int end = text.length();
    while (begin < end && u_ispunct(text.char32At(begin)))
        begin = text.moveIndex32(begin, 1);
    while (end > begin && u_ispunct(text.char32At(text.moveIndex32(end, -1))))
        end = text.moveIndex32(end, -1);
    std::string result;
    text.tempSubStringBetween(begin, end).toLower().toUTF8String(result);
    return result;
}

bool contains(const char16_t* characters, UChar32 character) {
    return icu::UnicodeString(characters).indexOf(character) >= 0;
}

} // namespace

BreakQuality breakQuality(const std::string& word, const std::string& next, const std::string& language) {
    icu::UnicodeString text = icu::UnicodeString::fromUTF8(word);
    // What closes a quotation or a bracket stands after the mark that counts.
    int end = text.length();
    while (end > 0 && contains(u"\"'\u2019\u201d\u00bb)]\u300d\u300f", text.char32At(end - 1)))
        --end;
    if (end > 0) {
        const UChar32 mark = text.char32At(text.moveIndex32(end, -1));
        const bool isTitle = mark == '.' && smallWords(language).openers.contains(bare(word));
        if (u_hasBinaryProperty(mark, UCHAR_S_TERM) && !isTitle) return BreakQuality::Sentence;
        if (mark == 0x2026) return BreakQuality::Sentence;
        if (u_hasBinaryProperty(mark, UCHAR_TERMINAL_PUNCTUATION) && !isTitle) return BreakQuality::Clause;
        if (contains(u"\u2013\u2014-", mark) || end < text.length()) return BreakQuality::Clause;
    }
    if (contains(u"\u2013\u2014-", icu::UnicodeString::fromUTF8(next).char32At(0)))
        return BreakQuality::Clause;
    if (smallWords(language).openers.contains(bare(word))) return BreakQuality::AfterOpener;
    if (smallWords(language).links.contains(bare(next))) return BreakQuality::BeforeLink;
    return BreakQuality::Anywhere;
}

} // namespace kestrel

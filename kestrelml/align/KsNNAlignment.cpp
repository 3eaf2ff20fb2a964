#include "kestrelml/align/KsNNAlignment.h"

KsNNAlignmentItem::KsNNAlignmentItem(int line, int word, float matchScore, int start)
    : lineNumber(line), wordIndex(word), score(matchScore), startMs(start) {
}

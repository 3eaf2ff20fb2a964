#include "kestrelml/stt/KsNNSpeechToTextCYTHON.h"

void KsNNSpeechToTextCYTHON::Shutdown() {
}

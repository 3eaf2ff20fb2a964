#pragma once

#include <string_view>

namespace kestrel_test {

/// Running English for tests that want text as people speak it.
inline constexpr std::u16string_view kProse =
    u"The ferry left an hour late, and nobody on the upper deck seemed to mind.\n"
    u"A woman in a green coat was counting gulls; she had reached forty-one when the engine changed its "
    u"note.\n"
    u"\"That's the harbour bar,\" said the boy beside her. \"My uncle says it moves every winter.\"\n"
    u"She asked him whether his uncle was a pilot. He wasn't. He repaired clocks in the old town, three of "
    u"them "
    u"for the mayor.\n"
    u"By the time the lighthouse came abeam it was raining, not hard, but in the patient way it rains "
    u"there.\n"
    u"The steward brought coffee that tasted of the pot, and bread, and an apology for both.\n"
    u"Somebody had left a newspaper on the bench. The headline spoke of a strike in the north, of snow on "
    u"the "
    u"passes, and of a horse that had won at twenty to one.\n"
    u"\"Do you believe it?\" the boy asked.\n"
    u"\"The snow, yes,\" she said, \"and the strike. I'd want to see the horse.\"\n"
    u"They laughed, and for a while they watched the water, which was the colour of slate and had no far "
    u"side.\n"
    u"Then the bell rang twice, the ropes went over, and the quay came up to meet them as if it, and not the "
    u"ship, "
    u"had been travelling all night.\n";

} // namespace kestrel_test

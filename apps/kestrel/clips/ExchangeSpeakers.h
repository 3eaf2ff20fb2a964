#pragma once

#include "apps/kestrel/clips/ExchangeContents.h"
#include "apps/kestrel/clips/SpeakerLookup.h"

#include <map>
#include <string>
#include <utility>
#include <vector>

namespace kestrel {

/// Gives the segments of imported clips to their speakers: the library's import leaves them behind.
class ExchangeSpeakers {
public:
    /// @param names Those that came with the file. A speaker whom the store knows keeps the name that it has.
    ExchangeSpeakers(KsNNDatabase& store, const SpeakerNames& names)
        : mStore(store), mNames(names), mKnown(store) {}

    /// @param projects Of the clip, one at least. A speaker whom the store does not know becomes the one of
    ///                 that name in the first of them, if there is one.
    /// @throws Failure when the store refuses it.
    void assign(const ExchangeClip& clip, const std::vector<KsNNProject>& projects);

private:
    using Segments = std::vector<int>;

    /// The store's speaker; empty when nothing but an identifier is known.
    std::string find(const KsNNProject& project, const std::string& speaker);
    std::string findOrCreate(const KsNNProject& project, const std::string& speaker);
    void create(const std::string& speaker, const std::string& name);
    void assignLabel(const ExchangeClip& clip, const KsNNProject& project,
                     const std::map<std::string, Segments>& bySpeaker);

    KsNNDatabase& mStore;
    const SpeakerNames& mNames;
    SpeakerLookup mKnown;
    using ByProject = std::map<std::pair<std::string, std::string>, std::string>;
    ByProject mFound;   ///< The store's speakers by project and speaker of the file.
    ByProject mMembers; ///< The same by project and name.
};

} // namespace kestrel

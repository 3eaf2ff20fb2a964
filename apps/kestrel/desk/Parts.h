#pragma once

#include "apps/kestrel/desk/Derived.h"
#include "apps/kestrel/desk/Jobs.h"
#include "apps/kestrel/desk/LastChange.h"
#include "apps/kestrel/desk/LatestOnly.h"
#include "apps/kestrel/desk/Listing.h"
#include "apps/kestrel/desk/Media.h"
#include "apps/kestrel/desk/Routes.h"
#include "apps/kestrel/desk/Stores.h"
#include "apps/kestrel/desk/Transcripts.h"
#include "apps/kestrel/desk/Transfers.h"

#include <atomic>

namespace kestrel::desk {

/// What the functions that answer requests work with.
struct Parts {
    explicit Parts(const Home& home)
        : stores(home), media(home), derived(home), transcripts(stores), listing(stores),
          jobs(stores, [this] { replaced(); }), transfers(home, [this] { replaced(); }) {}

    /// After a change of the store.
    void forget() {
        transcripts.forget();
        listing.forget();
    }

    /// After transcripts were written or replaced.
    void replaced() {
        lastChange.forgetAll();
        forget();
    }

    Stores stores;
    Media media;
    Derived derived;
    Transcripts transcripts;
    Listing listing;
    LastChange lastChange; ///< Of speakers.
    Jobs jobs;
    Transfers transfers;
    LatestOnly acrossSearch;
    std::atomic<bool> isStopping = false; ///< Streams end.
};

/// Each adds the routes of one source file.
void addSearchRoutes(Routes& routes, Parts& parts);
void addClipRoutes(Routes& routes, Parts& parts);
void addLibraryRoutes(Routes& routes, Parts& parts);
void addJobRoutes(Routes& routes, Parts& parts);
void addSpeakerRoutes(Routes& routes, Parts& parts);
void addScriptRoutes(Routes& routes, Parts& parts);
void addExportRoutes(Routes& routes, Parts& parts);
void addTransferRoutes(Routes& routes, Parts& parts);

} // namespace kestrel::desk

#include "apps/kestrel/desk/Stores.h"

#include "apps/kestrel/clips/MeaningSearch.h"
#include "apps/kestrel/services/Services.h"
#include "apps/kestrel/services/Store.h"

namespace kestrel::desk {

Stores::Stores(Home home) : mHome(std::move(home)) {
    openStore(mHome);
}

std::unique_ptr<KsNNDatabase> Stores::take() {
    const std::string uri = require(mHome, Service::Index).uri; // it may have been started again
    const std::scoped_lock lock(mMutex);
    while (!mFree.empty()) {
        std::unique_ptr<KsNNDatabase> store = std::move(mFree.back());
        mFree.pop_back();
        if (store->GetURI() == uri) return store;
    }
    return std::make_unique<KsNNDatabase>(uri.c_str(), nullptr, nullptr, nullptr, false);
}

KsNNDatabase Stores::copyWithMeaning() {
    const std::string uri = require(mHome, Service::Index).uri;
    const std::scoped_lock lock(mLoading);
    if (!mMeaning || mMeaning->GetURI() != uri) {
        auto loaded = std::make_unique<KsNNDatabase>(uri.c_str(), nullptr, nullptr, nullptr, false);
        loadMeaningModels(*loaded);
        mMeaning = std::move(loaded);
    }
    return *mMeaning;
}

void Stores::put(std::unique_ptr<KsNNDatabase> store) {
    const std::scoped_lock lock(mMutex);
    mFree.push_back(std::move(store));
}

} // namespace kestrel::desk

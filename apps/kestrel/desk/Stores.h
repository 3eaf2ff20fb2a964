#pragma once

#include "apps/kestrel/home/Home.h"
#include "kestrelml/store/KsNNDatabase.h"

#include <memory>
#include <mutex>
#include <shared_mutex>
#include <utility>
#include <vector>

namespace kestrel::desk {

/// The store, for many requests at a time: a store object is used by one thread at a time.
class Stores {
public:
    /// @throws Failure when the store is unavailable.
    explicit Stores(Home home);

    /// Calls `use` with a store object and returns what it returns.
    template <typename Use>
    auto with(Use use) {
        const std::shared_lock lock(mSettings);
        std::unique_ptr<KsNNDatabase> store = take();
        const auto giveBack = [this](KsNNDatabase* used) { put(std::unique_ptr<KsNNDatabase>(used)); };
        const std::unique_ptr<KsNNDatabase, decltype(giveBack)> borrowed(store.release(), giveBack);
        return use(*borrowed);
    }

    /// The same with a store object that has the models of search by meaning, which the first call loads.
    /// @throws Failure that says what is missing.
    template <typename Use>
    auto withMeaning(Use use) {
        const std::shared_lock lock(mSettings);
        KsNNDatabase store = copyWithMeaning();
        return use(store);
    }

    /// Calls `change` while nobody uses the store: opening it sets what all store objects of a process share.
    template <typename Change>
    auto exclusively(Change change) {
        const std::unique_lock lock(mSettings);
        return change();
    }

    const Home& home() const { return mHome; }

private:
    std::unique_ptr<KsNNDatabase> take();
    KsNNDatabase copyWithMeaning();
    void put(std::unique_ptr<KsNNDatabase> store);

    Home mHome;
    std::shared_mutex mSettings;
    std::mutex mMutex;
    std::vector<std::unique_ptr<KsNNDatabase>> mFree;
    std::mutex mLoading;
    std::unique_ptr<KsNNDatabase> mMeaning; ///< Copies of it share its models.
};

} // namespace kestrel::desk

#pragma once

/// @file
/// Reading more hits than one search gives. Internal.

#include "kestrelml/store/Operation.h"

#include <string>

namespace kestrelml::detail {

/// A search whose hits come page by page, all from the state of the index at the first page.
///
///     Scroll scroll(operation, index, query, pageSize);
///     while (scroll.hasNext()) {
///         if (const auto code = scroll.fetch()) return code;
///         ... scroll.hits() ...
///     }
///
/// The service keeps the state for ten minutes after each page.
class Scroll {
public:
    /// Which page's answer names the next one.
    enum class Continues { FromFirstPage, FromLastPage };

    /// @param body     The search; receives the page size.
    /// @param pageSize Hits on a page; `fetch` fails when it is less than 1.
    /// @param failure  Message of a page that comes with another status than 200; null for the operation's.
    Scroll(Operation& operation, std::string index, Object::Ptr body, int pageSize,
           Continues continues = Continues::FromFirstPage, const char* failure = nullptr);

    /// True until a page has come that was not full.
    bool hasNext() const { return mHasNext; }
    KsNN_ErrorCode fetch(SourceLocation where = SourceLocation::current());

    /// The last page fetched: its hits, and the whole answer.
    const Array::Ptr& hits() const { return mHits; }
    const Object::Ptr& page() const { return mPage; }

private:
    Operation& mOperation;
    std::string mIndex;
    Object::Ptr mBody;
    int mPageSize;
    Continues mContinues;
    const char* mFailure;
    bool mHasNext = true;
    std::string mIdentifier;
    Object::Ptr mPage;
    Array::Ptr mHits;
};

} // namespace kestrelml::detail

#include "kestrelml/store/Scroll.h"

#include "kestrelml/store/Answer.h"

#include <utility>

namespace kestrelml::detail {
namespace {

constexpr const char* kKept = "10m";

} // namespace

Scroll::Scroll(Operation& operation, std::string index, Object::Ptr body, int pageSize, Continues continues,
               const char* failure)
    : mOperation(operation), mIndex(std::move(index)), mBody(std::move(body)), mPageSize(pageSize),
      mContinues(continues), mFailure(failure) {
    mBody->set("size", mPageSize);
}

KsNN_ErrorCode Scroll::fetch(SourceLocation where) {
    if (mPageSize < 1) {
        // Every page would be full, and the reading never end.
        return mOperation.failSaying(
            "The page size is " + std::to_string(mPageSize) + ", it must be at least 1.", where);
    }
    const bool isFirst = mPage.isNull();
    const KsNN_ErrorCode asked =
        isFirst ? mOperation.ask("GET", searchPath(mIndex) + "?scroll=" + kKept, mBody, mFailure, where)
                : mOperation.ask("POST", "_search/scroll",
                                 object({{"scroll_id", mIdentifier}, {"scroll", kKept}}), mFailure, where);
    if (asked != KsNN_Success) return asked;
    return mOperation.guard(
        [&] {
            mPage = mOperation.answer();
            if (isFirst || mContinues == Continues::FromLastPage) mIdentifier = scrollIdOf(*mPage);
            mHits = hitsOf(*mPage);
            mHasNext = mHits->size() >= static_cast<std::size_t>(mPageSize);
            return KsNN_Success;
        },
        where);
}

} // namespace kestrelml::detail

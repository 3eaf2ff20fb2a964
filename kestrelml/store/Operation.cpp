#include "kestrelml/store/Operation.h"

#include "kestrelml/store/Answer.h"

#include <algorithm>

namespace kestrelml::detail {

Operation::Operation(KsNNDatabase& store, const char* failure, bool debug)
    : mStore(store), mFailure(failure), mDebug(debug) {
    mStore.ResetErrorStr();
}

IndexState Operation::refresh(const std::string& index) const {
    return refresh(index, false);
}

IndexState Operation::refreshAll(const std::string& index) const {
    return refresh(index, true);
}

IndexState Operation::refresh(const std::string& index, bool allIndices) const {
    bool exists = false;
    const KsNN_ErrorCode code = mStore.Refresh(index, exists, mDebug, allIndices);
    return {code, exists};
}

KsNN_ErrorCode Operation::refreshExisting(const std::string& index, const char* missing,
                                          SourceLocation where) const {
    const IndexState state = refresh(index);
    return state.isMissing() ? failSaying(missing, where) : state.code();
}

KsNN_ErrorCode Operation::send(const std::string& method, const std::string& path, const Object::Ptr& body) {
    return RESTCall(method, path, mTimeoutSeconds, body, mAnswer, mStatus, &mStore, true, true, mDebug);
}

bool Operation::hasStatus(std::initializer_list<unsigned> accepted) const {
    return std::find(accepted.begin(), accepted.end(), mStatus) != accepted.end();
}

KsNN_ErrorCode Operation::judge(const char* failure, SourceLocation where) const {
    if (hasStatus({200})) return KsNN_Success;
    return failWith(failure == nullptr ? mFailure : failure, where);
}

KsNN_ErrorCode Operation::ask(const std::string& method, const std::string& path, const Object::Ptr& body,
                              const char* failure, SourceLocation where) {
    if (const auto code = send(method, path, body)) return code;
    return judge(failure, where);
}

KsNN_ErrorCode Operation::create(const std::string& index, const Object::Ptr& document,
                                 SourceLocation where) {
    if (const auto code = send("POST", documentsPath(index), document)) return code;
    if (!hasStatus({200, 201})) return fail(where);
    return expectText("result", "created", where);
}

KsNN_ErrorCode Operation::updateWhere(const std::string& index, const Object::Ptr& script,
                                      const Object::Ptr& query, const char* failure, SourceLocation where) {
    return ask("POST", updateByQueryPath(index), object({{"script", script}, {"query", query}}), failure,
               where);
}

KsNN_ErrorCode Operation::createAll(const std::string& index, std::stringstream& bulk, SourceLocation where) {
    const KsNN_ErrorCode code = RESTCall("PUT", bulkPath(index), kIndexTimeoutSeconds, bulk, mAnswer, mStatus,
                                         &mStore, true, true, mDebug);
    if (code != KsNN_Success) return code;
    if (const auto refused = judge(nullptr, where)) return refused;
    return read(
        [&](const Object& answer) {
            const std::string error = firstErrorOf(answer);
            return error.empty() ? KsNN_Success : failSaying("A document was not created: " + error, where);
        },
        where);
}

KsNN_ErrorCode Operation::expectText(const char* key, const char* expected, SourceLocation where) const {
    return read(
        [&](const Object& answer) {
            const Var value = answer.get(key);
            if (value.isEmpty()) return fail(where);
            const auto text = value.convert<std::string>();
            debugLine("result: ", text);
            return text == expected ? KsNN_Success : fail(where);
        },
        where);
}

KsNN_ErrorCode Operation::tell(const KsNNProgressCallback& progress, int current, int total, const char* text,
                               SourceLocation where) const {
    if (!progress) return KsNN_Success;
    return guard([&] { return progress(current, total, text); }, where);
}

KsNN_ErrorCode Operation::fail(SourceLocation where) const {
    return failWith(mFailure, where);
}

KsNN_ErrorCode Operation::failWith(const std::string& message, SourceLocation where) const {
    return detail::fail(&mStore, message, mDebug, where);
}

KsNN_ErrorCode Operation::failSaying(const std::string& detail, SourceLocation where) const {
    return failWith(mFailure + detail, where);
}

} // namespace kestrelml::detail

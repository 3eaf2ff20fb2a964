#include "kestrelml/exchange/KsNNExchangeFile.h"

#include "kestrelml/exchange/ExchangeReader.h"
#include "kestrelml/exchange/ExchangeWriter.h"
#include "kestrelml/exchange/WholeFile.h"
#include "kestrelml/platform/Paths.h"
#include "kestrelml/store/Operation.h"
#include "kestrelml/store/Schema.h"

#include <fstream>

namespace kestrelml {

using namespace detail;

KsNN_ErrorCode readExchangeFile(KsNNDatabase& store, const std::string& path,
                                const ExchangePageVisitor& visit, bool debug) {
    const Operation operation(store, "readExchangeFile err: ", debug);
    std::ifstream file(platform::pathFromUtf8(path), std::ios::binary);
    if (!file.is_open()) return operation.failSaying("The exchange file cannot be opened");
    return operation.guard([&] { return readExchange(file, KsNNDatabase::getKey(), visit); });
}

KsNN_ErrorCode copyExchangeFile(KsNNDatabase& store, const std::string& from, const std::string& to,
                                const std::string& page, bool debug) {
    const Operation operation(store, "copyExchangeFile err: ", debug);
    std::ifstream source(platform::pathFromUtf8(from), std::ios::binary);
    if (!source.is_open()) return operation.failSaying("The exchange file cannot be opened");
    WholeFile target(to);
    if (!target.isOpen()) return operation.failSaying(target.failure());
    const KsNN_ErrorCode written = operation.guard([&] {
        ExchangeWriter writer(target.stream(), KsNNDatabase::getKey());
        const KsNN_ErrorCode code =
            readExchange(source, KsNNDatabase::getKey(), [&](const std::string& element) {
                writer.add(element);
                return target.flush() ? KsNN_Success : operation.failSaying(target.failure());
            });
        if (code != KsNN_Success) return code;
        writer.add(page);
        writer.finish();
        return KsNN_Success;
    });
    if (written != KsNN_Success) return written;
    return target.commit() ? KsNN_Success : operation.failSaying(target.failure());
}

KsNN_ErrorCode createSpeakerAs(KsNNDatabase& store, const KsNNSpeakerKV& speaker, bool debug) {
    Operation operation(store, "createSpeakerAs err: ", debug);
    Object::Ptr document = speakerDocument(speaker);
    document->set(field::kProjectList, toArray(std::vector<std::string>{}));
    const std::string path =
        documentPath(KsNNDatabase::getSpeakerIndex(), speaker.speakerGuid) + "?op_type=create";
    if (const auto code = operation.send("POST", path, document)) return code;
    return operation.hasStatus({200, 201, 409}) ? KsNN_Success : operation.fail();
}

} // namespace kestrelml

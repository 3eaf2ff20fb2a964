#pragma once

#include "handlers/Handlers.h"

#include <spdlog/spdlog.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <string_view>
#include <unistd.h>

namespace kestrel_fuzz {

/// The index service without its network: requests go to the router as the administrator's. Whatever is
/// asked, the answer is JSON and no server error.
class Service {
public:
    static constexpr const char* kIndex = "fuzz_rel";

    Service() { spdlog::set_level(spdlog::level::off); }
    ~Service() { std::filesystem::remove_all(mFolder); }
    Service(const Service&) = delete;
    Service& operator=(const Service&) = delete;

    kestrel::index::Answer ask(const std::string& method, const std::string& target, std::string_view body) {
        kestrel::index::Request request;
        request.method = method;
        request.user = mAdministrator;
        request.body = body;
        request.hasBody = !body.empty();
        kestrel::index::Answer answer = dispatch(request, target);
        const bool readable = kestrel::index::Json::accept(answer.body);
        if (answer.status < 500 && readable) return answer;
        std::fprintf(stderr, "%s %s: %d %s\n", method.c_str(), target.c_str(), answer.status,
                     answer.body.c_str());
        std::abort();
    }

    /// Documents of the kinds that stores hold, for searches to find.
    void fill() {
        ask("DELETE", kIndex, "");
        ask("PUT", kIndex,
            R"({"mappings": {"properties": {"projectList": {"type": "nested", "properties": {"projectGuid":)"
            R"( {"type": "keyword"}}}, "v": {"type": "dense_vector", "dims": 2}}}})");
        for (int i = 0; i < 20; ++i) {
            const std::string n = std::to_string(i);
            ask("PUT", kIndex + ("/_doc/" + n),
                R"({"segment": )" + n + R"(, "mediaGuid": "clip)" + n + R"(", "transcript": "the river )" +
                    n + R"( said", "wordStartsMS": [1, )" + n +
                    R"(], "done": true, "half": 0.5, "v": [1, 0.5],)" +
                    R"( "projectList": [{"projectGuid": "A"}, {"projectGuid": "B"}]})");
        }
    }

private:
    kestrel::index::Answer dispatch(kestrel::index::Request& request, const std::string& target) try {
        kestrel::index::parseTarget(target, request);
        return mRouter.dispatch(request);
    } catch (const kestrel::index::ApiError& e) {
        return kestrel::index::errorAnswer(e);
    }

    static std::filesystem::path makeFolder() {
        std::string name = (std::filesystem::temp_directory_path() / "index-fuzz-XXXXXX").string();
        if (mkdtemp(name.data()) == nullptr) std::abort();
        return name;
    }

    const std::filesystem::path mFolder = makeFolder();
    kestrel::index::Services mServices{mFolder / "documents.db"};
    const kestrel::index::Router mRouter = makeRouter(mServices);
    const std::shared_ptr<const kestrel::index::Principal> mAdministrator =
        std::make_shared<const kestrel::index::Principal>(
            "fuzzer", std::vector<std::string>{}, kestrel::index::AllRights,
            std::vector<kestrel::index::Principal::Grant>{{{"*"}, kestrel::index::AllRights}});
};

inline std::string_view text(const std::uint8_t* data, std::size_t size) {
    return {reinterpret_cast<const char*>(data), size};
}

} // namespace kestrel_fuzz

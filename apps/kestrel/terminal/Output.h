#pragma once

#include <Poco/JSON/Object.h>

#include <string>

namespace kestrel {

/// Writes results to standard output.
/// @throws Failure when they cannot be written, so that a full disk is not taken for an empty answer.
void printResult(const std::string& text);
void printResult(const Poco::JSON::Object::Ptr& document);
/// Writes one line for people to standard error.
void tell(const std::string& message);

/// Makes part of a line stand out: bold on a terminal, between asterisks elsewhere.
std::string emphasised(const std::string& text);

/// The state of one long job on standard error: rewritten in place on a terminal, a line each tenth
/// elsewhere.
class ProgressLine {
public:
    explicit ProgressLine(std::string title);
    ProgressLine(const ProgressLine&) = delete;
    ProgressLine& operator=(const ProgressLine&) = delete;
    ~ProgressLine();

    void show(const std::string& stage, double fraction);
    void done(const std::string& summary);

private:
    void clear();

    std::string mTitle;
    std::string mStage;
    int mPercent = -1;
    bool mShown = false;
};

} // namespace kestrel

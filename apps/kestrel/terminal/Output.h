#pragma once

#include <Poco/JSON/Object.h>

#include <string>

namespace kestrel {

/// Writes results to standard output; a terminal gets them `printable`.
/// @throws Failure when they cannot be written, so that a full disk is not mistaken for an empty answer;
/// OutputClosed when nobody reads them any more.
void printResult(const std::string& text);
void printResult(const Poco::JSON::Object::Ptr& document);
/// Writes a message for people to standard error, `printable`.
void tell(const std::string& message);

/// Makes part of a line stand out, on a terminal that can and is allowed to (NO_COLOR); plain elsewhere.
std::string emphasised(const std::string& text);

/// The state of one long job on standard error: rewritten in place on a terminal, a line each quarter
/// elsewhere.
class ProgressLine {
public:
    explicit ProgressLine(const std::string& title);
    ProgressLine(const ProgressLine&) = delete;
    ProgressLine& operator=(const ProgressLine&) = delete;
    ~ProgressLine();

    /// @param note Follows the percentage.
    void show(const std::string& stage, double fraction, const std::string& note = "");
    void done(const std::string& summary);

private:
    void clear();

    std::string mTitle;
    std::string mStage;
    int mPercent = -1;
    bool mShown = false;
};

} // namespace kestrel

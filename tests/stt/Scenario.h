#pragma once

#include "kestrelml/core/KsNNBase.h"

#include <Poco/JSON/Array.h>
#include <Poco/JSON/Object.h>

#include <fstream>
#include <functional>
#include <iostream>
#include <iterator>
#include <map>
#include <sstream>

namespace kestrel_test {

using Arguments = std::vector<std::string>;

/// A host program of a speech engine: runs steps, and prints each step's outcome as a line of JSON.
class Scenario {
public:
    virtual ~Scenario() = default;

    /// @param step Name and arguments, separated by "|".
    void run(const std::string& step) {
        Arguments arguments;
        std::istringstream parts(step + "|");
        for (std::string part; std::getline(parts, part, '|');)
            arguments.push_back(part);
        const std::string name = arguments.front();
        arguments.erase(arguments.begin());
        mOutcome = new Poco::JSON::Object;
        mOutcome->set("step", name);
        try {
            mOutcome->set("code", static_cast<int>(mSteps.at(name)(arguments)));
            mOutcome->set("error", errors());
        } catch (const char* raised) {
            mOutcome->set("raised", raised);
        } catch (const std::exception& raised) {
            mOutcome->set("raised", raised.what());
        }
        mOutcome->stringify(std::cout);
        std::cout << std::endl;
    }

protected:
    virtual std::string errors() const { return ""; }

    std::map<std::string, std::function<KsNN_ErrorCode(const Arguments&)>> mSteps;
    Poco::JSON::Object::Ptr mOutcome;
};

template <typename Sample>
std::vector<Sample> readSamples(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    if (!file) throw std::runtime_error("no file " + path);
    const std::string bytes{std::istreambuf_iterator<char>(file), {}};
    std::vector<Sample> samples(bytes.size() / sizeof(Sample));
    bytes.copy(reinterpret_cast<char*>(samples.data()), samples.size() * sizeof(Sample));
    return samples;
}

template <typename Value>
Poco::JSON::Array::Ptr toArray(const std::vector<Value>& values) {
    Poco::JSON::Array::Ptr array = new Poco::JSON::Array;
    for (const Value& value : values)
        array->add(value);
    return array;
}

} // namespace kestrel_test

#include "kestrelml/semantic/TextModels.h"

#include "kestrelml/core/Debug.h"
#include "kestrelml/platform/LibraryLoading.h"
#include "kestrelml/platform/Paths.h"
#include "kestrelml/semantic/ModelDescription.h"

#include <algorithm>
#include <array>
#include <iostream>
#include <numeric>

namespace kestrelml::semantic {
namespace {

constexpr const char* kTextModel = "openclip_model_uint8.onnx";
constexpr const char* kTokenizer = "xlm_roberta_base_tokenizer.onnx";

/// The environment logs everything; the host's error output is for warnings and worse.
void ORT_API_CALL logWarnings(void* /*unused*/, OrtLoggingLevel severity, const char* /*category*/,
                              const char* /*id*/, const char* location, const char* message) {
    if (severity >= ORT_LOGGING_LEVEL_WARNING)
        std::cerr << "ONNX Runtime: " << location << ": " << message << '\n';
}

Ort::MemoryInfo cpuMemory() {
    return Ort::MemoryInfo::CreateCpu(OrtDeviceAllocator, OrtMemTypeCPU);
}

std::string inputName(const Ort::Session& session, std::size_t index) {
    return session.GetInputNameAllocated(index, Ort::AllocatorWithDefaultOptions()).get();
}

std::string outputName(const Ort::Session& session, std::size_t index) {
    return session.GetOutputNameAllocated(index, Ort::AllocatorWithDefaultOptions()).get();
}

/// The shape that the model declares, for one text.
std::vector<std::int64_t> shapeForOneText(const Ort::Session& session, std::size_t input) {
    std::vector<std::int64_t> shape = session.GetInputTypeInfo(input).GetTensorTypeAndShapeInfo().GetShape();
    if (shape.empty()) throw std::runtime_error("an input of the text model has no dimensions");
    shape.front() = 1;
    if (std::any_of(shape.begin(), shape.end(), [](std::int64_t size) { return size < 1; })) {
        throw std::runtime_error("an input of the text model is open in a dimension other than the first");
    }
    return shape;
}

std::size_t sizeOf(const std::vector<std::int64_t>& shape) {
    return static_cast<std::size_t>(
        std::accumulate(shape.begin(), shape.end(), std::int64_t{1}, std::multiplies<>()));
}

template <typename T>
Ort::Value tensorOf(std::vector<T>& values, const std::vector<std::int64_t>& shape) {
    return Ort::Value::CreateTensor<T>(cpuMemory(), values.data(), values.size(), shape.data(), shape.size());
}

} // namespace

void TextModels::load(const std::string& modelDir, bool describe) {
    const auto open = [&](const Ort::Env& environment, const Ort::SessionOptions& options, const char* file) {
        const auto path = platform::pathFromUtf8(modelDir + '/' + file);
        return std::make_shared<Ort::Session>(environment, path.c_str(), options);
    };
    const auto environment =
        std::make_shared<Ort::Env>(ORT_LOGGING_LEVEL_VERBOSE, "Default", logWarnings, nullptr);
    Ort::SessionOptions options;
    options.SetGraphOptimizationLevel(ORT_ENABLE_EXTENDED);
    options.SetIntraOpNumThreads(1); // the library starts no threads, and one text keeps only one busy

    const auto textModel = open(*environment, options, kTextModel);
    detail::debugLine(describe, kTextModel, ":\n", describeModel(*textModel));
    options.RegisterCustomOpsLibrary(platform::besideThisLibrary(platform::kExtensionOperators).c_str());
    const auto tokenizer = open(*environment, options, kTokenizer);
    detail::debugLine(describe, '\n', kTokenizer, ":\n", describeModel(*tokenizer));

    release();
    mTextModel = textModel;
    mTokenizer = tokenizer;
    mEnvironment = environment;
}

void TextModels::release() {
    mTextModel.reset();
    mTokenizer.reset();
    mEnvironment.reset();
}

std::vector<std::int64_t> TextModels::tokenize(const std::string& text) const {
    const std::int64_t one = 1;
    Ort::Value input = Ort::Value::CreateTensor(Ort::AllocatorWithDefaultOptions(), &one, 1,
                                                ONNX_TENSOR_ELEMENT_DATA_TYPE_STRING);
    input.FillStringTensorElement(text.c_str(), 0);
    const std::string in = inputName(*mTokenizer, 0);
    const std::string out = outputName(*mTokenizer, 0);
    const std::array inputs{in.c_str()};
    const std::array outputs{out.c_str()};
    const std::vector<Ort::Value> answer =
        mTokenizer->Run(Ort::RunOptions{nullptr}, inputs.data(), &input, 1, outputs.data(), 1);
    const auto info = answer.front().GetTensorTypeAndShapeInfo();
    if (info.GetElementType() != ONNX_TENSOR_ELEMENT_DATA_TYPE_INT32) {
        throw std::runtime_error("the tokenizer model does not give 32-bit token ids");
    }
    const auto* const ids = answer.front().GetTensorData<std::int32_t>();
    return {ids, ids + info.GetElementCount()};
}

std::vector<float> TextModels::embed(const std::string& text) const {
    if (!mTextModel || !mTokenizer) throw std::runtime_error("the models are not loaded");
    std::vector<std::int64_t> ids = tokenize(text);
    const std::vector<std::int64_t> idsShape = shapeForOneText(*mTextModel, 0);
    if (ids.size() < sizeOf(idsShape)) {
        throw std::runtime_error("the tokenizer gives fewer ids than the text model takes");
    }
    const std::vector<std::int64_t> imageShape = shapeForOneText(*mTextModel, 1);
    std::vector<float> image(sizeOf(imageShape));

    const std::array inputs{tensorOf(ids, idsShape), tensorOf(image, imageShape)};
    const std::string idsName = inputName(*mTextModel, 0);
    const std::string imageName = inputName(*mTextModel, 1);
    const std::string out = outputName(*mTextModel, 1);
    const std::array inputNames{idsName.c_str(), imageName.c_str()};
    const std::array outputNames{out.c_str()};
    const std::vector<Ort::Value> answer = mTextModel->Run(
        Ort::RunOptions{nullptr}, inputNames.data(), inputs.data(), inputs.size(), outputNames.data(), 1);
    const auto info = answer.front().GetTensorTypeAndShapeInfo();
    if (info.GetElementType() != ONNX_TENSOR_ELEMENT_DATA_TYPE_FLOAT) {
        throw std::runtime_error("the text model does not give 32-bit floats");
    }
    const auto* const values = answer.front().GetTensorData<float>();
    return {values, values + info.GetElementCount()};
}

} // namespace kestrelml::semantic

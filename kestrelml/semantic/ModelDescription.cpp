#include "kestrelml/semantic/ModelDescription.h"

#include <array>
#include <cstddef>
#include <sstream>
#include <utility>

namespace kestrelml::semantic {
namespace {

const char* nameOf(ONNXTensorElementDataType type) {
    static constexpr std::array<std::pair<ONNXTensorElementDataType, const char*>, 16> kNames{{
        {ONNX_TENSOR_ELEMENT_DATA_TYPE_FLOAT, "float"},
        {ONNX_TENSOR_ELEMENT_DATA_TYPE_UINT8, "uint8"},
        {ONNX_TENSOR_ELEMENT_DATA_TYPE_INT8, "int8"},
        {ONNX_TENSOR_ELEMENT_DATA_TYPE_UINT16, "uint16"},
        {ONNX_TENSOR_ELEMENT_DATA_TYPE_INT16, "int16"},
        {ONNX_TENSOR_ELEMENT_DATA_TYPE_INT32, "int32"},
        {ONNX_TENSOR_ELEMENT_DATA_TYPE_INT64, "int64"},
        {ONNX_TENSOR_ELEMENT_DATA_TYPE_STRING, "string"},
        {ONNX_TENSOR_ELEMENT_DATA_TYPE_BOOL, "bool"},
        {ONNX_TENSOR_ELEMENT_DATA_TYPE_FLOAT16, "float16"},
        {ONNX_TENSOR_ELEMENT_DATA_TYPE_DOUBLE, "double"},
        {ONNX_TENSOR_ELEMENT_DATA_TYPE_UINT32, "uint32"},
        {ONNX_TENSOR_ELEMENT_DATA_TYPE_UINT64, "uint64"},
        {ONNX_TENSOR_ELEMENT_DATA_TYPE_COMPLEX64, "complex64"},
        {ONNX_TENSOR_ELEMENT_DATA_TYPE_COMPLEX128, "complex128"},
        {ONNX_TENSOR_ELEMENT_DATA_TYPE_BFLOAT16, "bfloat16"},
    }};
    for (const auto& [known, name] : kNames) {
        if (known == type) return name;
    }
    return "Unknown data type";
}

void describeTensor(std::ostream& out, const char* role, std::size_t index, const char* name,
                    const Ort::TypeInfo& info) {
    const auto tensor = info.GetTensorTypeAndShapeInfo();
    const auto line = [&]() -> std::ostream& { return out << role << ' ' << index << ' '; };
    line() << "name: " << name << '\n';
    line() << "data type: " << nameOf(tensor.GetElementType()) << '\n';
    line() << "dimensions: [";
    const char* separator = "";
    for (const std::int64_t dimension : tensor.GetShape()) {
        out << separator << dimension;
        separator = ", ";
    }
    out << "]\n";
}

} // namespace

std::string describeModel(const Ort::Session& session) {
    Ort::AllocatorWithDefaultOptions allocator;
    std::ostringstream out;
    out << "Number of inputs: " << session.GetInputCount() << '\n';
    for (std::size_t i = 0; i < session.GetInputCount(); ++i) {
        describeTensor(out, "Input", i, session.GetInputNameAllocated(i, allocator).get(),
                       session.GetInputTypeInfo(i));
    }
    out << "Number of outputs: " << session.GetOutputCount() << '\n';
    for (std::size_t i = 0; i < session.GetOutputCount(); ++i) {
        describeTensor(out, "Output", i, session.GetOutputNameAllocated(i, allocator).get(),
                       session.GetOutputTypeInfo(i));
    }
    return out.str();
}

} // namespace kestrelml::semantic

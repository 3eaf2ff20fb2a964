# Finds ONNX Runtime, which comes without a CMake package: OnnxRuntime::OnnxRuntime.
find_path(OnnxRuntime_INCLUDE_DIR onnxruntime_cxx_api.h
  HINTS "${KESTREL_DEPS_DIR}/onnxruntime/include" PATH_SUFFIXES onnxruntime)
find_library(OnnxRuntime_LIBRARY onnxruntime HINTS "${KESTREL_DEPS_DIR}/onnxruntime/lib")
# Operators of tokenizer models, loaded at run time.
find_library(OnnxRuntime_EXTENSIONS_LIBRARY ortextensions HINTS "${KESTREL_DEPS_DIR}/onnxruntime/lib")

include(FindPackageHandleStandardArgs)
find_package_handle_standard_args(OnnxRuntime
  REQUIRED_VARS OnnxRuntime_LIBRARY OnnxRuntime_INCLUDE_DIR OnnxRuntime_EXTENSIONS_LIBRARY
  REASON_FAILURE_MESSAGE "Run scripts/setup, or scripts/fetch-onnxruntime FOLDER with -DCMAKE_PREFIX_PATH=FOLDER.")

if(OnnxRuntime_FOUND AND NOT TARGET OnnxRuntime::OnnxRuntime)
  add_library(OnnxRuntime::OnnxRuntime SHARED IMPORTED)
  set_target_properties(OnnxRuntime::OnnxRuntime PROPERTIES
    IMPORTED_LOCATION "${OnnxRuntime_LIBRARY}" IMPORTED_SONAME libonnxruntime.so.1
    INTERFACE_INCLUDE_DIRECTORIES "${OnnxRuntime_INCLUDE_DIR}")
endif()

# What each part needs, looked for only when the part is built.

# The library.
find_package(Poco 1.11 REQUIRED COMPONENTS Foundation Net NetSSL JSON Crypto)
find_package(ICU 72 REQUIRED COMPONENTS uc i18n data)
find_package(OpenSSL REQUIRED)
find_package(Threads REQUIRED)
find_package(OnnxRuntime REQUIRED)

# Python, for the in-process engine, the speech service and the tests. The interpreter to embed is the one that
# .deps/venv is made with, not whichever comes first in PATH.
if(KESTREL_EMBEDDED_PYTHON OR KESTREL_BUILD_SERVICES OR KESTREL_BUILD_TESTS)
  set(Python_ROOT_DIR "/usr" CACHE PATH "Prefix of the Python to embed")
  set(python_components Interpreter)
  if(KESTREL_EMBEDDED_PYTHON)
    list(APPEND python_components Development.Module Development.Embed)
  endif()
  find_package(Python 3.10 REQUIRED COMPONENTS ${python_components})
  set(KESTREL_PYTHON "${KESTREL_DEPS_DIR}/venv/bin/python")
  if(NOT EXISTS "${KESTREL_PYTHON}")
    message(FATAL_ERROR "There is no Python environment ${KESTREL_PYTHON}. Run scripts/setup, "
                        "or set KESTREL_DEPS_DIR to the folder in which it was run.")
  endif()
endif()

if(KESTREL_BUILD_SERVICES OR KESTREL_BUILD_APP)
  find_package(fmt REQUIRED)
  find_package(CLI11 REQUIRED)
endif()
if(KESTREL_BUILD_SERVICES)
  find_package(SQLite3 REQUIRED)
  find_package(Boost 1.74 REQUIRED) # headers only: Asio and Beast
  find_package(spdlog REQUIRED)
  find_package(roaring REQUIRED)
  find_package(nlohmann_json REQUIRED)
  find_package(simdjson REQUIRED)
  find_package(ZLIB REQUIRED)
endif()
if(KESTREL_BUILD_APP)
  find_package(Poco 1.11 REQUIRED COMPONENTS XML)
  find_package(PkgConfig REQUIRED)
  pkg_check_modules(LIBAV REQUIRED IMPORTED_TARGET libavformat libavcodec libavutil libswresample)
endif()
if(KESTREL_BUILD_TESTS)
  find_package(GTest REQUIRED)
endif()
if(KESTREL_BUILD_BENCH)
  find_package(benchmark REQUIRED)
endif()

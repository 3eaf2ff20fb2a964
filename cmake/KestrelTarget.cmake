# What every target of ours has in common: warnings as errors, sanitizers, compiler cache, fast linker.

find_program(KESTREL_CCACHE ccache)
if(KESTREL_CCACHE AND NOT CMAKE_CXX_COMPILER_LAUNCHER)
  set(CMAKE_C_COMPILER_LAUNCHER "${KESTREL_CCACHE}")
  # Precompiled headers carry a time stamp that ccache has to be told to overlook.
  set(CMAKE_CXX_COMPILER_LAUNCHER "${CMAKE_COMMAND}" -E env CCACHE_SLOPPINESS=pch_defines,time_macros
      "CCACHE_BASEDIR=${CMAKE_SOURCE_DIR}" CCACHE_NOHASHDIR=1 "${KESTREL_CCACHE}")
endif()
find_program(KESTREL_MOLD mold)
if(KESTREL_MOLD)
  add_link_options(-fuse-ld=mold)
endif()

# kestrel_target(<target> [PCH <header>...])
function(kestrel_target target)
  cmake_parse_arguments(ARG "" "" "PCH" ${ARGN})
  target_compile_options(${target} PRIVATE
    -Wall -Wextra -Wshadow -Wconversion -Wsign-conversion -Werror -fno-omit-frame-pointer)
  if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU")
    # -fpch-preprocess lets ccache see through precompiled headers.
    target_compile_options(${target} PRIVATE -fpch-preprocess)
  endif()
  target_include_directories(${target} PRIVATE "${CMAKE_SOURCE_DIR}")
  if(KESTREL_SANITIZE)
    target_compile_options(${target} PRIVATE -fsanitize=${KESTREL_SANITIZE} -fno-sanitize-recover=all)
    target_link_options(${target} PRIVATE -fsanitize=${KESTREL_SANITIZE})
  endif()
  if(ARG_PCH)
    target_precompile_headers(${target} PRIVATE ${ARG_PCH})
  endif()
endfunction()

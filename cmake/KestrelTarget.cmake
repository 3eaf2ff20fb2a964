# What every target of this project has in common: warnings, sanitizers, compiler cache, fast linker, names.
# Warnings become errors in the presets (CMAKE_COMPILE_WARNING_AS_ERROR), not for those who only use the library.

find_program(KESTREL_CCACHE ccache)
if(KESTREL_CCACHE AND NOT CMAKE_CXX_COMPILER_LAUNCHER)
  set(CMAKE_C_COMPILER_LAUNCHER "${KESTREL_CCACHE}")
  # Precompiled headers carry a time stamp that ccache has to be told to overlook.
  set(CMAKE_CXX_COMPILER_LAUNCHER "${CMAKE_COMMAND}" -E env CCACHE_SLOPPINESS=pch_defines,time_macros
      "CCACHE_BASEDIR=${PROJECT_SOURCE_DIR}" CCACHE_NOHASHDIR=1 "${KESTREL_CCACHE}")
endif()
find_program(KESTREL_MOLD mold)
if(KESTREL_MOLD)
  add_link_options(-fuse-ld=mold)
endif()

# kestrel_target(<target> [PCH <header>...])
function(kestrel_target target)
  cmake_parse_arguments(ARG "" "" "PCH" ${ARGN})
  target_compile_options(${target} PRIVATE
    -Wall -Wextra -Wshadow -Wconversion -Wsign-conversion -fno-omit-frame-pointer)
  # Lets ccache see through precompiled headers.
  if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU")
    target_compile_options(${target} PRIVATE -fpch-preprocess)
  else()
    target_compile_options(${target} PRIVATE -Xclang -fno-pch-timestamp)
  endif()
  target_include_directories(${target} PRIVATE "${PROJECT_SOURCE_DIR}")
  if(KESTREL_SANITIZE)
    target_compile_options(${target} PRIVATE -fsanitize=${KESTREL_SANITIZE} -fno-sanitize-recover=all)
    target_link_options(${target} PRIVATE -fsanitize=${KESTREL_SANITIZE})
  endif()
  if(ARG_PCH)
    target_precompile_headers(${target} PRIVATE ${ARG_PCH})
  endif()
endfunction()

# kestrel_check_target_names(<folder>)
# A target that is run or linked from outside has its own name (kestrelml, kestrel, kestrel-index); every other one is
# kestrel_<folder>[_<part>]_<kind>, in lower case with underscores, so that it cannot clash with those of a host.
function(kestrel_check_target_names folder)
  get_property(targets DIRECTORY "${folder}" PROPERTY BUILDSYSTEM_TARGETS)
  foreach(target IN LISTS targets)
    if(NOT target MATCHES "^(kestrel-index|kestrel(ml)?(_[a-z0-9]+)*)$")
      message(FATAL_ERROR "The target ${target} in ${folder} needs a name of the form kestrel_<folder>_<kind>")
    endif()
  endforeach()
  get_property(children DIRECTORY "${folder}" PROPERTY SUBDIRECTORIES)
  foreach(child IN LISTS children)
    kestrel_check_target_names("${child}")
  endforeach()
endfunction()

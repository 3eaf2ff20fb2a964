#pragma once

/// @file
/// Marks what the shared library exports. Everything else stays hidden.

#if defined(_WIN32) && !defined(KESTRELML_STATIC)
#ifdef KESTRELML_BUILDING
#define KSNN_API __declspec(dllexport)
#else
#define KSNN_API __declspec(dllimport)
#endif
#elif defined(__GNUC__)
#define KSNN_API __attribute__((visibility("default")))
#else
#define KSNN_API
#endif

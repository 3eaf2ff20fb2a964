#pragma once

/// @file
/// Version of the library. The build reads it from here.

#define KSNN_VERSION "0.1.0"

#pragma once

/// @file
/// What the shared library exports.

/// Marks a declaration that the shared library exports; everything else stays hidden.
#define CLIENTCOMM_EXPORT __attribute__((visibility("default")))

/// Marks a private member of an exported class that the shared library keeps to itself.
#define CLIENTCOMM_LOCAL __attribute__((visibility("hidden")))

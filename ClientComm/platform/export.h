#pragma once

/// Marks a declaration that the shared library exports; everything else stays hidden.
#define CLIENTCOMM_EXPORT __attribute__((visibility("default")))

# Functions that lay out application bundles.

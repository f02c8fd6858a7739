"""A host or a helper in Python, with the standard library only.

Follows docs/wire-format.md and docs/files.md, and shares no code with the library.
"""

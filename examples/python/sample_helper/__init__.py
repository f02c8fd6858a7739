"""A helper: the program of the bundle PythonHelper.app."""

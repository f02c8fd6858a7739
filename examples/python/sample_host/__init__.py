"""A host: the program of the bundle PythonHost.app."""

#!/usr/bin/env python3
"""The metadata of examples/python is complete: a wheel can be built of it, and holds its packages.

python_package.py SOURCE WORK_DIR
"""

import os
import shutil
import sys
import zipfile

WANTED = {
    "clientcomm/__init__.py",
    "clientcomm/_library.py",
    "clientcomm/calls.py",
    "clientcomm/host.py",
    "clientcomm/loop.py",
    "sample_host/__main__.py",
    "sample_helper/__main__.py",
}


def main(source, work):
    try:
        import setuptools.build_meta
        import wheel  # noqa: F401  what setuptools of this age builds wheels with
    except ImportError as error:
        print(f"skipped: {error}")
        return 0
    shutil.rmtree(work, ignore_errors=True)
    # A build leaves folders beside the sources.
    shutil.copytree(source, os.path.join(work, "source"))
    os.chdir(os.path.join(work, "source"))
    name = setuptools.build_meta.build_wheel(work)
    with zipfile.ZipFile(os.path.join(work, name)) as archive:
        missing = WANTED - set(archive.namelist())
    shutil.rmtree(work)
    if missing:
        print(f"{name} lacks {sorted(missing)}")
        return 1
    return 0


sys.exit(main(os.path.abspath(sys.argv[1]), os.path.abspath(sys.argv[2])))

"""Reads XML documents of 3D functional tolerancing and annotation data into Python objects."""

from ._vektps import __version__

__all__ = ["__version__"]

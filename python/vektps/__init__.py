"""Reads XML documents of 3D functional tolerancing and annotation data into Python objects.

    import vektps

    document = vektps.load("pump_housing.xml")
    for annotation in document.sets[0].annotations:
        print(annotation.id, annotation.name, annotation.value, [v.name for v in annotation.views])

``load`` finds the input form (plain XML, base64 text or zlib data) and the schema (current or
legacy) from the bytes and returns a ``Document``; a document that does not load raises
``LoadError``. Objects link to the objects they name; an object keeps its whole model alive.
``python3 -m vektps.batch`` loads many documents on a Dask cluster.
"""

import os

from ._vektps import (CG, TTRS, Annotation, Camera, Capture, Diagnostic, Document, Graphic, Mesh,
                      Node, Object, Primitive, RefFrame, Set, View, __version__, load_bytes,
                      load_file)

__all__ = ["load", "LoadError", "WriteWarning", "Document", "Set", "Object", "Annotation", "TTRS", "View",
           "RefFrame", "CG", "Capture", "Camera", "Graphic", "Node", "Mesh", "Primitive",
           "Diagnostic", "__version__"]


class LoadError(ValueError):
    """A document that did not load. ``message`` says why in one sentence; ``line`` and
    ``column`` place an XML error (None for other failures); ``result`` is the load's result code
    and ``status`` the reason as a word ('xml-error', 'decode-failed', 'read-failed', ...)."""

    def __init__(self, message, *, line=None, column=None, result=None, status=None):
        super().__init__(message)
        self.message = message
        self.line = line
        self.column = column
        self.result = result
        self.status = status

    def __str__(self):
        if self.line is None:
            return self.message
        return f"line {self.line}, column {self.column}: {self.message}"


class WriteWarning(UserWarning):
    """Something of the model that a current-schema document cannot keep, named with its object,
    from Document.write."""


def _document(source, form=None, dump=None):
    """Loads `source` (a path or bytes) into a Document, whether or not it loads."""
    dump_path = None if dump is None else os.fsencode(dump)
    if isinstance(source, (str, os.PathLike)):
        return load_file(os.fsencode(source), form, dump_path)
    return load_bytes(source, form, dump_path)


def load(source, *, form=None, dump=None):
    """Loads a document and returns its Document.

    ``source`` is a path (str or path-like) or the document's bytes (any bytes-like object).
    ``form`` forces the input form: "plain", "base64" or "zlib"; by default it is found from the
    bytes, and the schema always follows from the root element. ``dump`` names a file where a
    current-schema load writes its dump of the parsed document; none is written otherwise.
    The GIL is released while the document loads. Raises LoadError when it does not load."""
    document = _document(source, form, dump)
    if not document.loaded:
        raise LoadError(document.error, line=document.error_line, column=document.error_column,
                        result=document.result, status=document.status)
    return document

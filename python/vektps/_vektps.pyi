"""Type stubs of the compiled module of vektps."""

__version__: str

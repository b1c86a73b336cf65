"""Functions the system calls by name, and how to set them.

Names in use: "Korvo.vela.Engine.getPrefOptions", "version",
"Korvo.vela.createEnumValuesFromClassDefinition" (samples, member names, class name, member values)
and "Korvo.vela.createFiObjectFromMetadataAndRealWorldValues".
"""

from vela import _vela


def register(name, function):
    """Sets the function of that name.

    Parameters
    ----------
    name : str
    function : callable or None
        None brings the built-in function back, where there is one.

    Returns
    -------
    previous : callable or None
        The Python function that stood there before.
    """
    return _vela.registerHostFunction(name, function)


__all__ = ["register"]

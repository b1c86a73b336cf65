"""Functions the system calls by name, and how to set them.

Names in use: "Korvo.vela.Engine.getPrefOptions", "version",
"Korvo.vela.createEnumValuesFromClassDefinition" (samples, member names, class name, member values)
and "Korvo.vela.createFiObjectFromMetadataAndRealWorldValues".
"""

from __future__ import annotations

from collections.abc import Callable
from typing import Any

from vela import _vela


def register(name: str, function: Callable[..., Any] | None) -> Callable[..., Any] | None:
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

"""Bytes on loan to the library, which may keep those of a sample until its fragment is written."""

import ctypes
import itertools

from . import _records as r
from .values import in_range

_lent: dict[int, bytes] = {}
_numbers = itertools.count(1)


def _give_back(number: int, _data: int) -> None:
    _lent.pop(number, None)


_GIVE_BACK = r.RELEASE_BUFFER(_give_back)


class Loan:
    """Bytes to be lent with a call."""

    def __init__(self, data: bytes):
        self._data = bytes(data)
        in_range(len(self._data), 32, "a number of bytes")

    def __len__(self) -> int:
        return len(self._data)

    def buffer(self):
        """A record to be handed to the library, which keeps the bytes alive until it gives them
        back."""
        number = next(_numbers)
        _lent[number] = self._data
        return ctypes.byref(
            r.DataBuffer(
                length=len(self._data),
                data=ctypes.cast(ctypes.c_char_p(self._data), ctypes.c_void_p),
                clientData=number,
                release=_GIVE_BACK,
            )
        )


def lent_count() -> int:
    """How many the library has at the moment."""
    return len(_lent)

"""Who may release what, and when.

The library wants samples and iterators released before their reader is closed, and everything of a
reader or writer used by one call at a time. Python promises neither the order of finalizers nor the
thread that they run on, so an Owner keeps the list of what was obtained from it, and a finalizer
only notes what can go; the next call of the owner releases it.
"""

import itertools
import threading
from collections import deque
from collections.abc import Callable
from ctypes import byref, c_void_p
from typing import Any, Optional, TypeVar

from ._loans import Loan
from .stream import Stream

_Result = TypeVar("_Result")


class Owner:
    """A reader, writer or query servicer of the library."""

    def __init__(
        self,
        pointer: int,
        close: Callable[[int], Any],
        streams: tuple[Stream, ...],
        callbacks: Any = None,
    ):
        self._pointer: Optional[int] = pointer
        self._callbacks = callbacks  # Others than those of the streams; alive as long as this.
        self._close = close
        self._streams = streams  # Hold the callbacks and the files.
        # By numbers that never come again, as pointers do.
        self._children: dict[int, tuple[int, Callable[[int], Any]]] = {}
        self._numbers = itertools.count()
        self._unused: deque[int] = deque()
        self._lock = threading.RLock()
        self._is_in_call = False

    @property
    def pointer(self) -> int:
        if self._pointer is None:
            raise ValueError("used after it was closed")
        return self._pointer

    @property
    def is_closed(self) -> bool:
        return self._pointer is None

    def call(self, function: Callable, *arguments: Any) -> None:
        """Calls a function of the library; an Owner or Child among the arguments stands for its
        pointer, a Loan for its buffer. Raises what a file object raised meanwhile, or else a
        K7MError."""
        with self._lock:
            self.check(self.alone(lambda: self._call(function, arguments)))

    def obtain(
        self, release: Callable[[int], Any], function: Callable, *arguments: Any
    ) -> Optional["Child"]:
        """As call(), of a function whose last parameter receives what the library wants back. None
        when there is nothing."""
        found = c_void_p()
        with self._lock:  # Nobody may close the owner before it knows of the child.
            self.call(function, *arguments, byref(found))
            return None if found.value is None else self.adopt(found.value, release)

    def alone(self, step: Callable[[], _Result]) -> _Result:
        """Does something with the files while nothing else does."""
        with self._lock:
            self._enter()
            try:
                return step()
            finally:
                self._is_in_call = False

    def check(self, code: int) -> None:
        """Raises unless the code is 0."""
        Stream.check(code, self._streams)

    def adopt(self, pointer: int, release: Callable[[int], Any]) -> "Child":
        """Takes over what the library gave out and wants back. Needs the lock."""
        number = next(self._numbers)
        self._children[number] = pointer, release
        return Child(self, number, pointer)

    def note_unused(self, number: int) -> None:
        """Has a child released by the next call. Safe in a finalizer, whatever goes on meanwhile."""
        self._unused.append(number)

    def close(self) -> None:
        """Releases everything, the owner last. Closing again does nothing. Raises what a file
        object raised meanwhile."""
        with self._lock:
            if self._pointer is None:
                return
            self.alone(self._release_all)

    def _release_all(self) -> None:
        try:
            while self._children:
                _, (pointer, release) = self._children.popitem()
                release(pointer)
            pointer, self._pointer = self._pointer, None
            self._close(pointer)
        finally:
            Stream.close_all(self._streams)

    def _call(self, function: Callable, arguments: tuple[Any, ...]) -> int:
        self._release_unused()
        return function(*map(_resolve, arguments))

    def _enter(self) -> None:
        if self._is_in_call:
            raise RuntimeError("used by the file object that it is reading or writing")
        self.pointer
        self._is_in_call = True

    def _release_unused(self) -> None:
        while self._unused:
            child = self._children.pop(self._unused.popleft(), None)
            if child is not None:
                pointer, release = child
                release(pointer)

    def __del__(self) -> None:
        try:
            self.close()
        except BaseException:
            pass  # There is nobody to tell, and the file object may have been finalized before.


class Child:
    """An iterator or a sample. Keeps its owner alive."""

    __slots__ = ("owner", "_number", "_pointer")

    def __init__(self, owner: Owner, number: int, pointer: int):
        self.owner = owner
        self._number = number
        self._pointer: Optional[int] = pointer

    @property
    def pointer(self) -> int:
        if self._pointer is None or self.owner.is_closed:
            raise ValueError("used after it was closed")
        return self._pointer

    def release(self) -> None:
        """Nothing can be done with it any more."""
        self._pointer = None
        self.owner.note_unused(self._number)

    def __del__(self) -> None:
        self.release()


def _resolve(argument: Any) -> Any:
    if isinstance(argument, (Owner, Child)):
        return argument.pointer
    if isinstance(argument, Loan):
        return argument.buffer()
    return argument



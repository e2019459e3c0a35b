"""Small values that readers and writers share: codes, dates, times."""

import datetime
import numbers
from fractions import Fraction
from typing import Optional, Union

from . import _records as r

#: Seconds, as a number.
Seconds = Union[int, float, Fraction]

_UTC = datetime.timezone.utc
_LARGEST_SCALE = 0xFFFFFFFF
# A float is taken for the simplest time near it. More would rather tell how it was rounded: with
# this, the times of usual time scales come out as they were.
_LARGEST_SCALE_OF_FLOAT = 10_000_000


def code_of(text: str) -> int:
    """The number of a four-character code: 'vide' is 0x76696465."""
    data = text.encode("latin-1")
    if len(data) != 4:
        raise ValueError(f"not four characters: {text!r}")
    return int.from_bytes(data, "big")


def text_of(code: int) -> str:
    """The four characters of a code."""
    return code.to_bytes(4, "big").decode("latin-1")


def read_date(date: r.DateTime) -> Optional[datetime.datetime]:
    """The date in UTC; None for one that the calendar of Python does not have."""
    try:
        return datetime.datetime(
            date.year, date.month, date.day, date.hour, date.minute, date.second, tzinfo=_UTC
        )
    except ValueError:
        return None


def make_date(date: Optional[datetime.datetime]) -> r.DateTime:
    """The record of a date, which must know its time zone; without one the begin of 1904, which
    stands for an unknown date."""
    if date is None:
        return r.DateTime(year=1904, month=1, day=1)
    if date.tzinfo is None:
        raise ValueError("a date without a time zone")
    date = date.astimezone(_UTC)
    return r.DateTime(
        year=date.year, month=date.month, day=date.day,
        hour=date.hour, minute=date.minute, second=date.second,
    )


def scaled(seconds: Seconds) -> tuple[int, int]:
    """A time as a time scale and a number of its units."""
    if not isinstance(seconds, numbers.Real) or seconds < 0:
        raise ValueError(f"not a number of seconds from 0 on: {seconds!r}")
    fraction = Fraction(seconds)
    largest = _LARGEST_SCALE if isinstance(seconds, numbers.Rational) else _LARGEST_SCALE_OF_FLOAT
    if fraction.denominator > largest:
        fraction = fraction.limit_denominator(largest)
    return fraction.denominator, in_range(fraction.numerator, 64, "a time")


def in_range(number: int, bits: int, what: str, *, is_signed: bool = False) -> int:
    """The number; raises OverflowError where the library's field would not hold it."""
    least = -(1 << (bits - 1)) if is_signed else 0
    if not least <= number < least + (1 << bits):
        raise OverflowError(f"{what} does not fit {bits} bits: {number}")
    return number

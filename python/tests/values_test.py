"""What becomes of seconds."""

import math
from fractions import Fraction

import pytest
from k7m.values import scaled


@pytest.mark.parametrize(
    "scale, hours", [(25, 1000), (600, 100), (44_100, 4), (90_000, 2), (1_000_000, 0.1)]
)
def test_a_float_is_the_time_that_it_was_made_of(scale, hours):
    for i in range(400):
        seconds = int(hours * 9 * i)
        time = Fraction(seconds * scale + scale // 3, scale)
        assert Fraction(*reversed(scaled(float(time)))) == time


def test_other_numbers_are_taken_as_they_are():
    assert scaled(3) == (1, 3)
    assert scaled(Fraction(5, 0xFFFFFFFF)) == (0xFFFFFFFF // 5, 1)
    assert scaled(Fraction(7, 0xFFFFFFFF)) == (0xFFFFFFFF, 7)
    scale, time = scaled(Fraction(10**12 + 1, 10**12))
    assert scale <= 0xFFFFFFFF and time >= scale


@pytest.mark.parametrize("seconds", [-1, -0.5, "1", None, math.inf, math.nan, 1e30])
def test_what_is_no_time_is_refused(seconds):
    with pytest.raises((ValueError, OverflowError)):
        scaled(seconds)

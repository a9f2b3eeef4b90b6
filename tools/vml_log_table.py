#!/usr/bin/env python3
# SPDX-License-Identifier: BSD-3-Clause
# Prints the logarithm's tables for vml/kernels/log_algo.h and its constants.
# The reduced argument z lies around 128 grid points g_i, whose bit patterns
# are 0x3FE6A00000000000 + i * 2^45 (0.70703125 up to 1.40625; entry 75 is 1).
# Entry i holds c_i, the double nearest 1/g_i, and -ln c_i as a leading
# double and a remainder, so ln x = k ln 2 - ln c_i + log1p(z c_i - 1) with
# |z c_i - 1| below 2^-8. Uses 80-digit arithmetic.
import struct

from mpmath import mp, mpf, log

mp.dps = 80


def from_bits(b):
    return struct.unpack("<d", struct.pack("<Q", b))[0]


def split(v, bits=53):
    """The double nearest v (or v cut to `bits` significant bits) and the rest."""
    hi = float(v)
    if bits < 53:
        m, e = mp.frexp(v)
        hi = float(mp.nint(m * 2**bits) / 2**bits * mpf(2) ** e)
    return hi, float(v - hi)



def table(low, bits, width):
    step = 1 << (52 - bits)
    for i in range(1 << bits):
        g = from_bits(low + i * step)
        c = float(1 / mpf(g))
        th, tl = split(-log(mpf(c)))
        print(f"    {{{c.hex()}, {th.hex()}, {tl.hex()}" + (", 0.0}," if width == 4 else "},"))


table(0x3FE6A00000000000, 7, 4)
# The 32-row table of the 512-bit kernels, held in registers: grid points
# 0x3FE6800000000000 + i * 2^47 (0.703125 up to 1.375; entry 19 is 1).
table(0x3FE6800000000000, 5, 3)
# ln 2 with 40 significant bits, so k ln 2 is exact for any exponent k.
print("ln2", *(x.hex() for x in split(log(2), 40)))
print("log10(e)", *(x.hex() for x in split(1 / log(10))))

# Near-minimax (Chebyshev) fits of (log1p(r) - r) / r^2 on the 32-row table's
# |r| <= 0.0157, lowest degree first: degree 7 for high accuracy (error
# 2^-58), 6 for low accuracy (2^-51), 2 for enhanced performance (2^-23).
from mpmath import chebyfit, log1p


def q(r):
    return mpf(-0.5) if abs(r) < mpf(10) ** -30 else (log1p(r) - r) / r**2


mp.dps = 50
for degree in (7, 6, 2):
    # The interval is nudged off symmetry: the fit misbehaves on the exactly
    # symmetric one for odd counts of coefficients.
    coeffs, err = chebyfit(q, [-mpf("0.0157"), mpf("0.0157") * mpf("1.00001")], degree + 1,
                           error=True)
    print(f"degree {degree} error 2^{float(log(err, 2)):.1f}:",
          ", ".join(float(c).hex() for c in reversed(coeffs)))

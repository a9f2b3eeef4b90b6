#!/usr/bin/env python3
# SPDX-License-Identifier: BSD-3-Clause
# Prints the table of 2^(j/16), j = 0..15, as a leading double and the
# double nearest the remainder, from 60-digit decimal arithmetic; the
# exponential kernels in vml/kernels/exp_algo.h carry its output.
from decimal import Decimal, getcontext

getcontext().prec = 60
for j in range(16):
    exact = Decimal(2) ** (Decimal(j) / 16)
    hi = float(exact)
    lo = float(exact - Decimal(hi))
    print(f"    {{{hi.hex()}, {lo.hex()}}},  // 2^({j}/16)")

#!/usr/bin/env python3
"""Writes hyperspectral/tests/data/spline_collection.txt: reference values for the spline routine
collection on irregular grids of 5 to 200 points, computed by SciPy and NumPy (Bezier curves by
de Casteljau's construction written here), independently of the library.

Records "grid <name>": on the grid (x, y), targets xi (one on either side of the knots), the
not-a-knot cubic spline's value and derivatives; the Hermite interpolant with slopes yp; the
Overhauser curve; the PCHIP's slopes at the knots, value and derivative; and the clamped B-spline
on the breakpoints x with coefficients bspline_c at the targets inside the knots, bspline_xi.
Records "least_squares <name>": the least-squares cubic spline with the interior knots and its
values at x, with the norm of its residual; the norms of the residuals of the least-squares
polynomials of degree 0, 1, ... up to 5 as long as the polynomial does not interpolate the data.
Records "bezier <name>": control values p and the curve at the parameters t; a single cubic
curve, then a piecewise one of four segments whose parameters include every joint.

    /usr/bin/python3 hyperspectral/tests/data/make_spline_collection_fixtures.py \
        > hyperspectral/tests/data/spline_collection.txt

Another SciPy or NumPy may change the last digits; the tests allow for that.
"""

import numpy as np
from scipy.interpolate import (BarycentricInterpolator, BSpline, CubicHermiteSpline, CubicSpline,
                               PchipInterpolator, make_lsq_spline)

# The interpolation grids, their targets, the B-spline coefficients and the Bezier curves draw
# from one stream; the least-squares data from another.
rng = np.random.RandomState(20240611)


def grids():
    """(name, x, y, yp): rising abscissae, values, and slopes for the Hermite interpolant."""
    # The first end slope of the PCHIP is the three-point estimate cut to 3 m[0]; the last is the
    # estimate itself.
    x = np.array([0.0, 1.0, 1.2, 2.5, 3.1])
    yield "FivePoints", x, np.array([0.0, 1.0, 0.2, 0.9, -0.4]), np.array(
        [0.5, -1.0, 2.0, 0.0, -3.0])
    x = np.array([0.0, 0.01, 0.5, 0.51, 3.0, 3.002, 7.0, 10.0])
    yield "Clustered", x, np.array([0.3, 0.31, -0.2, -0.25, 1.5, 1.49, 0.0, 0.7]), rng.uniform(
        -2.0, 2.0, x.size)
    x = np.cumsum(np.r_[450.0, rng.uniform(5.0, 35.0, 24)])
    g = 0.8 * np.exp(-0.5 * ((x - 600.0) / 40.0) ** 2)
    yield "Response", x, 0.05 + g, -g * (x - 600.0) / 1600.0
    x = np.cumsum(np.r_[-3.0, rng.uniform(0.05, 0.3, 59)])
    yield "Wavy", x, np.sin(x) + 0.1 * x * x, np.cos(x) + 0.2 * x
    # Monotone data with flat stretches, for the shape preservation of the PCHIP.
    x = np.cumsum(np.r_[0.0, rng.uniform(0.2, 2.0, 39)])
    steps = rng.uniform(0.0, 3.0, 39) * (rng.uniform(size=39) > 0.3)
    yield "Steps", x, np.cumsum(np.r_[-10.0, steps]), rng.uniform(0.0, 2.0, x.size)
    x = np.cumsum(np.r_[400.0, rng.exponential(3.0, 199) + 0.01])
    u = (x - 400.0) / 100.0
    yield "Dense", x, 40.0 * np.exp(-u) * np.cos(3.0 * u), 0.4 * np.exp(-u) * (
        -np.cos(3.0 * u) - 3.0 * np.sin(3.0 * u))


def targets(x):
    """Rising targets: one point inside every interval, the knots themselves on the smaller
    grids, and one target on either side of the knots."""
    inside = x[:-1] + (x[1:] - x[:-1]) * rng.uniform(0.05, 0.95, x.size - 1)
    span = x[-1] - x[0]
    knots = x if x.size < 100 else x[[0, x.size // 2, -1]]
    return np.sort(np.r_[x[0] - 0.05 * span, knots, inside, x[-1] + 0.05 * span])


def overhauser(x, y, xi):
    """The blend of the two parabolas of the three-point neighbourhoods on an inner interval, the
    single parabola on an end interval."""
    n = x.size

    def parabola(a, v):
        return BarycentricInterpolator(x[a:a + 3], y[a:a + 3])(v)

    out = []
    for v in xi:
        i = min(max(np.searchsorted(x, v, side="right") - 1, 0), n - 2)
        if i == 0:
            out.append(parabola(0, v))
        elif i == n - 2:
            out.append(parabola(n - 3, v))
        else:
            s = (v - x[i]) / (x[i + 1] - x[i])
            out.append((1.0 - s) * parabola(i - 1, v) + s * parabola(i, v))
    return np.array(out, dtype=float)


def clamped_knots(breakpoints):
    return np.r_[[breakpoints[0]] * 3, breakpoints, [breakpoints[-1]] * 3]


def least_squares_sets():
    """(name, x, y, interior knots): non-falling abscissae with noisy values."""
    draw = np.random.RandomState(20240612)
    x = np.sort(draw.uniform(400.0, 1000.0, 200))
    x[0], x[-1] = 400.0, 1000.0
    y = 0.3 + 0.5 * np.exp(-0.5 * ((x - 640.0) / 70.0) ** 2) + draw.normal(0.0, 0.02, x.size)
    yield "Noisy", x, y, np.sort(draw.uniform(420.0, 980.0, 12))
    x = np.sort(np.r_[np.round(draw.uniform(0.0, 10.0, 30), 1), [0.0, 2.5, 2.5, 7.0, 7.0, 10.0]])
    yield "Ties", x, np.sin(x) + draw.normal(0.0, 0.1, x.size), np.array([1.5, 3.0, 5.2, 8.1])
    # Six B-splines on seven points: barely enough data.
    x = np.array([0.0, 0.4, 1.1, 1.9, 2.2, 3.5, 4.0])
    yield "Tight", x, np.array([1.0, 0.2, -0.5, 0.4, 1.3, 0.6, 0.1]), np.array([1.0, 2.5])
    x = np.array([-1.0, -0.3, 0.2, 0.9, 1.4])
    yield "NoInteriorKnot", x, np.array([2.0, -1.0, 0.5, 0.0, 1.5]), np.array([])


def de_casteljau(p, t):
    p = list(p)
    while len(p) > 1:
        p = [(1.0 - t) * a + t * b for a, b in zip(p[:-1], p[1:])]
    return p[0]


def piecewise_bezier(p, s):
    segments = (len(p) - 1) // 3
    j = min(int(np.floor(s)), segments - 1)
    return de_casteljau(p[3 * j:3 * j + 4], s - j)


def row(name, values):
    print(name, " ".join("%.17g" % v for v in values))


def main():
    print("# Generated by make_spline_collection_fixtures.py with SciPy and NumPy; do not edit.")
    clamp_hit = False
    for name, x, y, yp in grids():
        xi = targets(x)
        cubic = CubicSpline(x, y, bc_type="not-a-knot")
        hermite = CubicHermiteSpline(x, y, yp)
        pchip = PchipInterpolator(x, y)
        slopes = PchipInterpolator._find_derivatives(x, y)
        m = np.diff(y) / np.diff(x)
        clamp_hit |= bool(np.isclose(slopes[0], 3.0 * m[0]) and m[0] != 0.0)
        c = rng.uniform(-1.0, 1.0, x.size + 2) * np.max(np.abs(y))
        inside = xi[(xi >= x[0]) & (xi <= x[-1])]
        bspline = BSpline(clamped_knots(x), c, 3, extrapolate=False)
        print()
        print("record grid", name)
        for field, values in (("x", x), ("y", y), ("yp", yp), ("xi", xi), ("cubic", cubic(xi)),
                              ("cubic_first", cubic(xi, 1)), ("cubic_second", cubic(xi, 2)),
                              ("hermite", hermite(xi)), ("hermite_first", hermite(xi, 1)),
                              ("overhauser", overhauser(x, y, xi)), ("pchip_slopes", slopes),
                              ("pchip", pchip(xi)), ("pchip_first", pchip(xi, 1)),
                              ("bspline_c", c), ("bspline_xi", inside),
                              ("bspline", bspline(inside))):
            row(field, values)
    assert clamp_hit, "no grid cuts a PCHIP end slope to 3 m[0]"

    for name, x, y, knots in least_squares_sets():
        # SciPy wants distinct abscissae: tied points become their mean with the weight of
        # their number, which leaves the same least-squares problem.
        unique, group, count = np.unique(x, return_inverse=True, return_counts=True)
        mean = np.bincount(group, weights=y) / count
        spline = make_lsq_spline(unique, mean, clamped_knots(np.r_[x[0], knots, x[-1]]), k=3,
                                 w=np.sqrt(count))
        fit = spline(x)
        residuals = [np.linalg.norm(np.polyval(np.polyfit(x, y, d), x) - y)
                     for d in range(min(5, unique.size - 2) + 1)]
        print()
        print("record least_squares", name)
        for field, values in (("x", x), ("y", y), ("knots", knots), ("spline_fit", fit),
                              ("spline_residual", [np.linalg.norm(fit - y)]),
                              ("polynomial_residuals", residuals)):
            row(field, values)

    p = np.array([0.4, 2.5, -1.75, 1.0])
    t = np.r_[0.0, np.sort(rng.uniform(0.0, 1.0, 9)), 1.0]
    single = [de_casteljau(p, v) for v in t]
    print()
    print("record bezier Single")
    row("p", p)
    row("t", t)
    row("value", single)
    p = rng.uniform(-3.0, 3.0, 13)
    s = np.sort(np.r_[np.arange(5.0), rng.uniform(0.0, 4.0, 16)])
    print()
    print("record bezier Piecewise")
    row("p", p)
    row("t", s)
    row("value", [piecewise_bezier(p, v) for v in s])


main()

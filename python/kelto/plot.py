"""Pictures of calibrations, correction matrices and spectra, with matplotlib.

Each function returns a matplotlib Figure of figsize inches at dpi dots per inch, writes it to
`path` when one is given (the format from its extension, PNG by default; the image is exactly
figsize * dpi pixels) and shows it on screen with show=True. Files are drawn with the Agg
renderer whatever pyplot's backend is, and without pyplot unless shown, so the functions work on
machines without a display and in threads.
"""

import numpy as np
from matplotlib.figure import Figure

from . import CorrectionMatrix, correct

FIGSIZE = (10.0, 5.0)
DPI = 100


def _figure(figsize, dpi, show):
    if show:
        import matplotlib.pyplot as plt
        return plt.figure(figsize=figsize, dpi=dpi)
    return Figure(figsize=figsize, dpi=dpi)


def _finish(figure, path, show):
    if path is not None:
        figure.savefig(path, dpi=figure.dpi)
    if show:
        import matplotlib.pyplot as plt
        plt.show()
    return figure


def _pick_matrix(calibration, matrix):
    if isinstance(matrix, CorrectionMatrix):
        return matrix
    matrices = calibration.correction_matrices
    if not matrices:
        raise ValueError("the calibration holds no correction matrix")
    if matrix is None:
        return calibration.system_info.spectral_correction_info.correction_matrices[0]
    if matrix not in matrices:
        raise KeyError(f"no correction matrix {matrix!r}; the calibration has "
                       f"{', '.join(repr(n) for n in matrices)}")
    return matrices[matrix]


def _transmission(grid, components):
    """The product of the components' transmissions on the grid (1 where a component has no
    curve), as the computation folds the optics into the band responses."""
    total = np.ones_like(grid)
    for component in components:
        points = component.sample_points_nm
        if points.size and component.response.size == points.size:
            total *= np.interp(grid, points, component.response)
    return total


def responses(calibration, path=None, show=False, figsize=FIGSIZE, dpi=DPI):
    """Every band's measured response over the calibration grid, its fitted peaks marked
    (filled: the first peak, open: the others)."""
    grid = calibration.filter_info.calibration_info.sample_points_nm
    bands = calibration.filter_info.bands
    figure = _figure(figsize, dpi, show)
    axes = figure.add_subplot()
    cmap = _colour_map()
    for number, band in enumerate(bands):
        colour = cmap(number / max(1, len(bands) - 1))
        response = band.response
        if response.size == grid.size and grid.size:
            axes.plot(grid, response, color=colour, linewidth=0.8)
        for rank, peak in enumerate(band.peaks):
            height = np.interp(peak.wavelength_nm, grid, response) \
                if response.size == grid.size and grid.size else peak.quantum_efficiency
            axes.plot([peak.wavelength_nm], [height], marker="v", markersize=5,
                      color=colour, markerfacecolor=colour if rank == 0 else "none",
                      linestyle="none")
    peaks = sum(len(b.peaks) for b in bands)
    axes.set_title(f"{calibration.type_name}, sensor {calibration.sensor_id}: "
                   f"{len(bands)} band responses, {peaks} fitted peaks")
    axes.set_xlabel("wavelength (nm)")
    axes.set_ylabel("response")
    axes.grid(True, alpha=0.3)
    figure.tight_layout()
    return _finish(figure, path, show)


def _colour_map():
    from matplotlib import colormaps
    return colormaps["turbo"]


def matrix(calibration, matrix=None, path=None, show=False, figsize=FIGSIZE, dpi=DPI):
    """A correction matrix of the calibration (a CorrectionMatrix, a name, or None for the
    first) as an image, and beside it the responses that its virtual bands synthesise from the
    calibration's band responses and optics, each over a Gaussian of the band's wavelength and
    FWHM (dashed), the ideal it approaches."""
    chosen = _pick_matrix(calibration, matrix)
    coefficients = chosen.coefficients
    grid = calibration.filter_info.calibration_info.sample_points_nm
    bands = calibration.filter_info.bands
    if coefficients.shape[1] != len(bands):
        raise ValueError(f"correction matrix \"{chosen.name}\" weighs {coefficients.shape[1]} "
                         f"bands, the calibration has {len(bands)}")
    figure = _figure(figsize, dpi, show)
    image_axes, curve_axes = figure.subplots(1, 2, gridspec_kw={"width_ratios": [2, 3]})

    limit = float(np.max(np.abs(coefficients))) if coefficients.size else 1.0
    image = image_axes.imshow(coefficients, cmap="RdBu_r", vmin=-limit, vmax=limit,
                              aspect="auto", interpolation="nearest")
    figure.colorbar(image, ax=image_axes, shrink=0.8, label="coefficient")
    wavelengths = chosen.wavelengths
    step = max(1, len(wavelengths) // 12)
    image_axes.set_yticks(range(0, len(wavelengths), step))
    image_axes.set_yticklabels([f"{w:.0f}" for w in wavelengths[::step]])
    image_axes.set_xlabel("band")
    image_axes.set_ylabel("virtual band (nm)")
    image_axes.set_title(f"\"{chosen.name}\": {coefficients.shape[0]} x {coefficients.shape[1]}")

    optics = _transmission(grid, list(calibration.system_info.optical_components)
                           + list(chosen.optical_components))
    measured = np.array([b.response for b in bands]) * optics
    synthesised = coefficients @ measured
    cmap = _colour_map()
    for row, (centre, width) in enumerate(zip(wavelengths, chosen.fwhms)):
        colour = cmap(row / max(1, len(wavelengths) - 1))
        curve_axes.plot(grid, synthesised[row], color=colour, linewidth=1.0)
        if width > 0:
            sigma = width / (2.0 * np.sqrt(2.0 * np.log(2.0)))
            height = np.interp(centre, grid, synthesised[row])
            ideal = height * np.exp(-0.5 * ((grid - centre) / sigma) ** 2)
            curve_axes.plot(grid, ideal, color=colour, linewidth=0.8, linestyle="--")
    curve_axes.set_xlabel("wavelength (nm)")
    curve_axes.set_ylabel("synthesised response")
    curve_axes.set_title("virtual bands (solid) and ideal Gaussians (dashed)")
    curve_axes.grid(True, alpha=0.3)
    figure.tight_layout()
    return _finish(figure, path, show)


def spectrum(cube, matrix, pixel, scale=1.0, fill=None, band_wavelengths=None, path=None,
             show=False, figsize=FIGSIZE, dpi=DPI):
    """The raw spectrum of a pixel (x, y) of a cube of shape (rows, columns, bands), divided
    by scale, beside its corrected spectrum. band_wavelengths places the raw bands (from the
    cube's header, say); without it they are drawn by band number."""
    x, y = pixel
    if cube.ndim != 3:
        raise ValueError(f"the cube must have three dimensions, not {cube.ndim}")
    if not (0 <= y < cube.shape[0] and 0 <= x < cube.shape[1]):
        raise IndexError(f"pixel ({x}, {y}) lies outside the cube of {cube.shape[1]} x "
                         f"{cube.shape[0]} pixels")
    raw = np.asarray(cube[y, x, :], dtype=np.float64)
    if fill is not None and np.any(raw == fill):
        raise ValueError(f"pixel ({x}, {y}) holds no data (fill value {fill})")
    corrected = correct(cube[y:y + 1, x:x + 1, :], matrix, scale=scale, fill=fill)[0, 0]
    figure = _figure(figsize, dpi, show)
    raw_axes, corrected_axes = figure.subplots(1, 2, sharey=False)
    if band_wavelengths is not None and len(band_wavelengths) == raw.size:
        raw_axes.plot(band_wavelengths, raw / scale, marker="o", markersize=3)
        raw_axes.set_xlabel("band wavelength (nm)")
    else:
        raw_axes.plot(np.arange(raw.size), raw / scale, marker="o", markersize=3)
        raw_axes.set_xlabel("band")
    raw_axes.set_ylabel("value")
    raw_axes.set_title(f"raw, pixel ({x}, {y})")
    corrected_axes.plot(matrix.wavelengths, corrected, marker="o", markersize=3,
                        color="tab:green")
    corrected_axes.set_xlabel("wavelength (nm)")
    corrected_axes.set_title(f"corrected by \"{matrix.name}\"")
    for axes in (raw_axes, corrected_axes):
        axes.grid(True, alpha=0.3)
    figure.tight_layout()
    return _finish(figure, path, show)

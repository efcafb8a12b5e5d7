"""python3 -m kelto plot ...: the package's pictures from the command line.

    python3 -m kelto plot CALIBRATION [-o PNG]
        the band responses with their fitted peaks
    python3 -m kelto plot matrix CALIBRATION [--matrix NAME] [-o PNG]
        a correction matrix and its virtual bands' synthesised responses
    python3 -m kelto plot spectrum CALIBRATION CUBE.hdr --pixel X,Y [--matrix NAME] [-o PNG]
        a pixel's raw and corrected spectrum, the cube's scale and fill from its ENVI header

Without -o the picture is shown on screen. Exit status 0 when done, 2 for a usage error, 1 for
anything that failed (with a message on standard error).
"""

import argparse
import os
import sys

KINDS = ("responses", "matrix", "spectrum")


def _parser(kind):
    parser = argparse.ArgumentParser(
        prog="python3 -m kelto plot" + ("" if kind == "responses" else " " + kind),
        description={"responses": "Plots a calibration's band responses and fitted peaks.",
                     "matrix": "Plots a correction matrix and its synthesised responses.",
                     "spectrum": "Plots a pixel's raw and corrected spectrum."}[kind])
    parser.add_argument("calibration", help="a calibration file")
    if kind == "spectrum":
        parser.add_argument("cube", help="an ENVI cube (its .hdr)")
        parser.add_argument("--pixel", required=True, help="X,Y: column and row")
    if kind != "responses":
        parser.add_argument("--matrix", help="the correction matrix's name (default: the first)")
    parser.add_argument("-o", "--output", help="the image file to write (PNG, SVG, PDF...)")
    parser.add_argument("--size", default="10x5", help="WxH in inches (default 10x5)")
    parser.add_argument("--dpi", type=int, default=100, help="dots per inch (default 100)")
    return parser


def _plot(kind, arguments):
    parser = _parser(kind)
    options = parser.parse_args(arguments)
    try:
        width, height = (float(v) for v in options.size.lower().split("x"))
    except ValueError:
        parser.error(f"--size must be WxH, not {options.size}")
    if options.output is None:
        import matplotlib
        if not os.environ.get("DISPLAY") and matplotlib.get_backend().lower() == "agg":
            parser.error("no display to show the picture on; pass -o FILE")

    import kelto
    from kelto import plot

    calibration = kelto.read_calibration(options.calibration)
    errors = [e for e in calibration.events if e[0] == kelto.ParserState.ERROR]
    if errors:
        print(f"warning: {options.calibration} has {len(errors)} error event(s), first: "
              f"{errors[0][1].name}: {errors[0][2]}", file=sys.stderr)
    style = dict(path=options.output, show=options.output is None, figsize=(width, height),
                 dpi=options.dpi)
    if kind == "responses":
        plot.responses(calibration, **style)
    elif kind == "matrix":
        plot.matrix(calibration, options.matrix, **style)
    else:
        try:
            x, y = (int(v) for v in options.pixel.split(","))
        except ValueError:
            parser.error(f"--pixel must be X,Y, not {options.pixel}")
        from kelto import envi
        cube = envi.open_cube(options.cube)
        matrix = plot._pick_matrix(calibration, options.matrix)
        plot.spectrum(cube.data, matrix, (x, y), scale=cube.scale, fill=cube.fill,
                      band_wavelengths=cube.wavelengths, **style)
    if options.output is not None:
        print(f"wrote {options.output}")


def main(argv=None):
    argv = sys.argv[1:] if argv is None else argv
    if not argv or argv[0] in ("-h", "--help"):
        print(__doc__.strip())
        return 0 if argv else 2
    if argv[0] != "plot":
        print(f"unknown command {argv[0]!r}; the command is plot\n\n{__doc__.strip()}",
              file=sys.stderr)
        return 2
    arguments = argv[1:]
    kind = "responses"
    if arguments and arguments[0] in KINDS:
        kind, arguments = arguments[0], arguments[1:]
    try:
        _plot(kind, arguments)
    except (OSError, ValueError, KeyError, IndexError, TypeError) as error:
        print(f"error: {error}", file=sys.stderr)
        return 1
    return 0


if __name__ == "__main__":
    sys.exit(main())

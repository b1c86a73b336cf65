"""The output of the converter under both loads, side by side."""

import vela

with vela.open("demo.dmr") as lab:
    for name in ("heavy load", "light load"):
        times, volts = lab.runs[name]["v(out)"].cut(4e-3, 5e-3)
        print(f"{name}: {volts.mean():.3f} V, ripple {1e3 * (volts.max() - volts.min()):.1f} mV")
    settled = lab.runs["heavy load"].to_pandas(raster=1e-3)
    print(settled[["v(out)", "i(l1)"]])

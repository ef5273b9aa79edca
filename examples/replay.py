"""Uploads the recording that the simulated board replays, and draws it: replay.py PICTURE.

The configuration lies beside this file: TornvalC63.ini."""

import sys
from pathlib import Path

import matplotlib

matplotlib.use("Agg")
import matplotlib.pyplot as plt

import tornval

HERE = Path(__file__).resolve().parent


def main() -> None:
    picture = sys.argv[1] if len(sys.argv) > 1 else "replay.png"
    with tornval.Instrument(home=HERE, volume=Path(picture).resolve().parent) as instrument:
        channels = instrument.upload(blocks=14)
    for number, samples in enumerate(channels):
        print(f"channel {number}: {samples.size} samples from {samples.min()} to {samples.max()}")
        plt.plot(samples, linewidth=0.8, label=f"channel {number}")
    plt.xlabel("sample")
    plt.ylabel("measure")
    plt.legend()
    plt.savefig(picture)
    print(f"drawn: {picture}")


main()

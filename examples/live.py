"""Reads an instrument live, the emulated one: live.py [NUMBER OF MEASURES].

With an instrument of your own, `tornval.Instrument(home=...)` takes the place of the emulator."""

import sys
import time

import tornval


def main() -> None:
    number = int(sys.argv[1]) if len(sys.argv) > 1 else 5
    with tornval.Emulator() as emulator, emulator.instrument() as instrument:
        for driver in instrument.drivers:
            print(driver.id, driver.link_type)
        for _ in range(number):
            begin = time.perf_counter()
            value = instrument.measure(2)
            print(f"input 2: {value} after {1e3 * (time.perf_counter() - begin):.2f} ms")
        emulator.set("board", "error-code=17*1")
        try:
            instrument.measure(2)
        except tornval.TornvalError as error:
            print("a failure looks like this:", error)


main()

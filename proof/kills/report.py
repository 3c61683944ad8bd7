"""What a proof found, as rows of a table on stdout, and how far it is, on stderr."""

import sys


def progress(text):
    print(" ", text, file=sys.stderr, flush=True)


class Promise:
    def __init__(self, text):
        self.text = text
        self.faults = []

    def broken(self, fault):
        self.faults.append(fault)
        progress("FAULT: " + fault)

    def broken_by(self, faults, place):
        for fault in faults:
            self.broken(f"{place}: {fault}")

    def print(self, tried, more=""):
        """Prints the row; returns whether the promise held."""
        found = f"{len(self.faults)} faults"
        if self.faults:
            found += ", first: " + self.faults[0]
        held = "NO" if self.faults else "yes"
        print(f"| {self.text} | {tried} | {found}{more} | {held} |", flush=True)
        return not self.faults

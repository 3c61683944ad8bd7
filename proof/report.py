# What a proof found, as rows of a table on stdout, and how far it is, on stderr.
import sys


def say(text):
    print(' ', text, file=sys.stderr, flush=True)


class Promise:
    def __init__(self, text):
        self.text = text
        self.faults = 0

    def broken_by(self, place, *faults):
        self.faults += len(faults)
        for fault in faults:
            say(f'FAULT  {place}: {fault}')

    # Prints the row; returns whether the promise held.
    def print(self, tried, found=''):
        held = 'NO' if self.faults else 'yes'
        print(f'| {self.text} | {tried} | {self.faults} faults{found} | {held} |', flush=True)
        return not self.faults


def windows_path(path):
    return 'Z:' + str(path).replace('/', '\\')

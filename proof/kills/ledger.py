"""What calls have recorded for one application, and where it must be found."""

from collections import Counter

import world

# States arrive in words that are counted; all other items are there once.
STATES = ("install", "uninstall")


class Ledger:
    def __init__(self, app, *, keeps_values=True, keeps_states=True):
        """An application that is removed may lose its states, and the last one loses all."""
        self.app = app
        self.keeps_values = keeps_values
        self.keeps_states = keeps_states
        self.log_start = world.ACCESS_LOG.stat().st_size
        self.tried = Counter(["install"])  # by the call that registers the application
        self.acknowledged = Counter(["install"])
        self.locales = {""}  # one of them was set last

    def enter(self, diaries):
        """Enters what hosts wrote that ran at the same time."""
        earlier = set(self.locales)
        for diary in diaries:
            latest = set()  # from the last one on whose call returned
            for line in diary:
                if line.item.startswith("L"):
                    if line.sign == "!":
                        self.locales -= earlier
                        latest.clear()
                    latest.add(line.item)
                elif line.item != "-" and line.sign != "x":
                    (self.tried if line.sign == "?" else self.acknowledged)[line.item] += 1
            self.locales |= latest

    def check_nothing_is_lost(self, stores, lost):
        """All that was acknowledged is in the files or has arrived; the locale was set last."""
        if self.keeps_states and stores.locale not in self.locales:
            lost.broken(f"{self.app}: locale '{stores.locale}' is none of {self.locales}")
        if not self.keeps_values:
            return

        def missing():
            places = stores.waiting + stores.in_work + world.arrived(self.app, self.log_start)
            return self.acknowledged.keys() - places.keys() - set(STATES)

        # The web server writes its log when the answer is out.
        if not world.eventually(lambda: not missing()):
            lost.broken(f"{self.app}: {missing()}")

    def check_arrivals(self, in_work, lost, twice):
        """When all is sent, compares what has arrived. An item may come once more for each block
        that was left in work: it was cut, sent or being taken back when its process died. Returns
        how many items came more often than they were tried."""
        arrived = world.arrived(self.app, self.log_start)
        for item, times in self.tried.items():
            fault = f"{self.app}: {item} came {arrived[item]} times of {times}"
            if arrived[item] < self.acknowledged[item] and self.keeps_values:
                lost.broken(fault)
            if arrived[item] > times + in_work[item] and (self.keeps_states or item not in STATES):
                twice.broken(fault)
        return sum(arrived[item] > self.tried[item] for item in self.tried.keys() - set(STATES))

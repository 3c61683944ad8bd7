"""crowds.py CALLS SECONDS CYCLES SEED: eight hosts at once, with executors that the service starts,
and the library loaded over and over."""

import random
import sys
import time
from collections import Counter

import world
from ledger import Ledger
from report import Promise

HOSTS = 8
# What the allocators of the system and of Wine may keep.
SLACK_KILOBYTES = 1024

# How often the hosts make each call.
RECORDS = dict(
    DLLSetOptionalParam=38, DLLSetUniqueParam=15, DLLUsageReport=8, AddAction=8, DLLSetLocale=5,
    DLLSetApplicationState=4, DLLGetApplicationState=6, DLLGetOptionalParam=5, DLLGetUniqueParam=4,
    DLLGetLocale=3, DLLOnApplicationStartup=2, DLLForceUpdateCheck=1, DLLGetUniqUserId=1)
ALL = {name: 6 for name in world.CALLS if name not in ("DLLOnApplicationUninstall", "AskService")}


def run_crowd(promise, apps, shares, calls, seed, seconds=0):
    """Runs the hosts to their ends, host i on application i modulo their number, and sends all that
    they recorded. Returns their ledgers and the lines of the calls that returned."""
    world.empty_data()
    rand = random.Random(seed)
    ledgers = {app: Ledger(app) for app in apps}
    for app in apps:
        world.call(app, app + ".first", ["DLLOnApplicationStartup"], real_executor=True)
    hosts = {}
    for i in range(HOSTS):
        app = apps[i % len(apps)]
        mix = rand.choices(list(shares), list(shares.values()), k=calls)
        hosts[app, f"{app}.{i}"] = world.start_host(app, f"{app}.{i}", mix, real_executor=True,
                                                    seed=seed + i, seconds=seconds)
    returned = []
    for (app, name), process in hosts.items():
        while process.poll() is None and not world.stands_still(name):
            time.sleep(0.1)
        process.kill()
        diary = world.take_diary(name)
        promise.broken_by(world.failures(diary), name)
        if process.wait() != 0:
            promise.broken(f"{name} ended with {process.returncode} in {diary[-1:]}")
        ledgers[app].enter([diary])
        returned += [line for line in diary if line.sign != "?"]
    if not world.deliver(apps):
        promise.broken("not all could be sent")
    return ledgers.values(), returned


def longest_of(lines):
    longest = max(lines, key=lambda line: line.milliseconds)
    return f"longest call {longest.milliseconds} ms ({longest.call})"


def prove_contention(applications, calls, seed):
    promise = Promise("all states, parameters and actions arrive exactly once")
    apps = [f"crowd{applications}-{i}" for i in range(applications)]
    ledgers, returned = run_crowd(promise, apps, RECORDS, calls, seed)
    for ledger in ledgers:
        ledger.check_arrivals(Counter(), promise, promise)
    if len(returned) != HOSTS * calls:
        promise.broken(f"only {len(returned)} calls")
    items = sum(ledger.tried.total() for ledger in ledgers)
    return promise.print(f"{HOSTS} processes with {calls} calls on {applications} "
                         f"application{'s' * (applications > 1)}, seed {seed}",
                         f" in {items} items, {longest_of(returned)}")


def prove_waiting(seconds, seed):
    promise = Promise("no deadlock while hosts wait for executors")
    _, returned = run_crowd(promise, ["wait0", "wait1"], ALL, 100, seed, seconds)
    return promise.print(f"{HOSTS} processes on 2 applications, {seconds} s, seed {seed}",
                         f" in {len(returned)} calls, {longest_of(returned)}")


def prove_loading(cycles):
    promise = Promise("loading and freeing leaks nothing")
    world.empty_data()
    output = world.SERVICE / "loading.txt"
    with output.open("w") as file:
        code = world.start(world.BUILD / "win64/proof/loading.exe", cycles, output=file).wait()
    usages = [list(map(int, line.split())) for line in output.read_text().splitlines()]
    handles, kilobytes, indexes = (late - early for early, late in zip(*usages))
    indexes = -indexes  # that are free no more
    if code != 0:
        promise.broken("a cycle failed")
    if handles > 0 or kilobytes > SLACK_KILOBYTES or indexes > 0:
        promise.broken("something leaks")
    return promise.print(f"{cycles} cycles of load, a call that throws inside, free",
                         f"; handles {handles}, memory {kilobytes} KiB, thread-local indexes "
                         f"{indexes} more than after cycle 50")


def main(calls, seconds, cycles, seed):
    world.set_up()
    return all([prove_loading(cycles), prove_contention(1, calls, seed),
                prove_contention(HOSTS, calls, seed), prove_waiting(seconds, seed)])


if __name__ == "__main__":
    sys.exit(0 if main(*map(int, sys.argv[1:])) else 1)

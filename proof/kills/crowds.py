# crowds.py CALLS SECONDS CYCLES SEED: eight hosts at once, with executors that the service starts,
# and the library loaded over and over.
import random
import sys
from collections import Counter

import application
import stage
from application import EXPORTS, Application
from report import Promise, say

HOSTS = 8
WARM_UP_CYCLES = 50
# What the allocators of the system and of Wine may keep.
SLACK_KILOBYTES = 1024

# How often the hosts make each call.
RECORDS = dict(
    DLLSetOptionalParam=38, DLLSetUniqueParam=15, DLLUsageReport=8, AddAction=8, DLLSetLocale=5,
    DLLSetApplicationState=4, DLLGetApplicationState=6, DLLGetOptionalParam=5, DLLGetUniqueParam=4,
    DLLGetLocale=3, DLLOnApplicationStartup=2, DLLForceUpdateCheck=1, DLLGetUniqUserId=1)
ALL = {name: 6 for name in [*EXPORTS, 'AddAction'] if name != 'DLLOnApplicationUninstall'}


# Runs the hosts to their ends, host i on application i modulo their number, and sends all that they
# recorded. Returns the applications and the calls that returned.
def run_crowd(promise, names, shares, calls, seed, seconds=0):
    stage.begin()
    rand = random.Random(seed)
    apps = [Application(name, rand) for name in names]
    for app in apps:
        app.call('DLLOnApplicationStartup', real_executor=True)
    hosts = []
    for i in range(HOSTS):
        mix = rand.choices(list(shares), list(shares.values()), k=calls)
        app = apps[i % len(apps)]
        hosts.append((app, app.start_host(mix, real_executor=True, seconds=seconds)))
    returned = []
    for app, host in hosts:
        diary = host.finish()
        promise.broken_by(app.name, *application.failures(diary))
        if host.process.returncode != 0:
            promise.broken_by(app.name, f'a host stood still or ended in {diary[-1:]}')
        app.enter(diary)
        returned += [entry for entry in diary if entry.sign != '?']
    if not application.deliver(apps):
        promise.broken_by(names, 'not all could be sent')
    longest = max(returned, key=lambda entry: entry.milliseconds)
    say(f'longest call: {longest}')
    return apps, len(returned), f'longest call {longest.milliseconds} ms'


def prove_contention(count, calls, seed):
    promise = Promise('all that is recorded arrives exactly once')
    names = [f'crowd{count}-{i}' for i in range(count)]
    apps, returned, longest = run_crowd(promise, names, RECORDS, calls, seed)
    for app in apps:
        app.check_arrivals(Counter(), promise, promise)
    if returned < HOSTS * calls:
        promise.broken_by('hosts', f'only {returned} calls')
    items = sum(app.tried.total() for app in apps)
    return promise.print(f'{HOSTS} hosts, {calls} calls each, apps: {count}, seed {seed}',
                         f', {items} items, {longest}')


def prove_waiting(seconds, seed):
    promise = Promise('no deadlock while hosts wait for executors')
    _, returned, longest = run_crowd(promise, ['wait0', 'wait1'], ALL, 100, seed, seconds)
    return promise.print(f'{HOSTS} hosts, 2 apps, {seconds} s, seed {seed}',
                         f', {returned} calls, {longest}')


def prove_loading(cycles):
    promise = Promise('loading and freeing leaks nothing')
    load = ['LoadCallFree']
    diary = stage.run_host('loading', *load * WARM_UP_CYCLES, 'Measure',
                           *load * (cycles - WARM_UP_CYCLES), 'Measure')
    promise.broken_by('loading', *application.failures(diary))
    usages = [map(int, entry.answer.split(',')) for entry in diary
              if entry.call == 'Measure' and entry.sign == '!']
    handles, kilobytes, indexes = (late - early for early, late in zip(*usages))
    if handles > 0 or kilobytes > SLACK_KILOBYTES or indexes < 0:
        promise.broken_by('loading', 'something leaks')
    return promise.print(f'{cycles} loads, each with a call that throws',
                         f'; more handles: {handles}, KiB: {kilobytes}, free indexes: {indexes}')


def main(calls, seconds, cycles, seed):
    return all([prove_loading(cycles), prove_contention(1, calls, seed),
                prove_contention(HOSTS, calls, seed), prove_waiting(seconds, seed)])


sys.exit(0 if main(*map(int, sys.argv[1:])) else 1)

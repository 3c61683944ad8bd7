# kills.py KILLS SEED: hosts and executors are killed at random moments, three at a time on one
# application. After each three the files must parse, what a call acknowledged must be there or at
# the web server, and the next calls must succeed.
import random
import signal
import sys
import time
from collections import Counter

import application
import stage
from application import EXPORTS, UNKNOWN_JOB, Application
from report import Promise, say

VICTIMS = 3
ROUNDS_OF_AN_APPLICATION = 20
ENOUGH_TO_MEET_ALL = 500
FEW_STARTS = 3  # that Wine may fail to bring to their first line
FEW_JOBS, MANY_JOBS = 2, 5
MOST_RESTARTS = 10  # of the transfer service, in a row

# How an application is treated, in turns. "kept": never removed, so that all items are counted
# exactly. "removed": removed and registered again and again; another application keeps the
# executor. "left": the same without another one: the executor removes itself and what is known.
TREATMENTS = ('kept', 'left', 'kept', 'removed', 'kept', 'kept')

# How often the hosts make each call; the other exports: 6.
SHARES = {'DLLSetOptionalParam': 20, 'DLLDownloadAndInstallSilentUpdate': 1}

# The executor's command lines, in the order in which they are recognized. Those that only print are
# killed ten times less often.
COMMANDS = {'--suicide': 1, '--stat-callback': 1, '--update-check': 1, '--silent-update-check': 1,
            '--status --json': 10, '--status': 10, '--version': 10, '--help': 10, '--job': 1}


# A host or an executor, and the moment at which it is killed.
class Victim:
    def __init__(self, name, process, latest, host=None, calls=0, delay=0):
        self.name, self.process, self.host = name, process, host
        self.latest = time.monotonic() + latest
        self.calls, self.delay = calls, delay

    # A host has begun when it is killed, and half of the hosts have made some calls. They are
    # counted, since how many fit into a time depends on the machine.
    def is_due(self):
        if self.host:
            diary = self.host.diary()
            # The first call names the executor.
            if sum(entry.sign != '?' for entry in diary) > self.calls:
                self.latest = min(self.latest, time.monotonic() + self.delay)
        return time.monotonic() >= self.latest


def kill(victims):
    living = victims
    while living:
        for victim in living:
            if victim.is_due():
                victim.process.kill()
        time.sleep(0.002)
        living = [victim for victim in living if victim.process.poll() is None]


# Chooses at random, from what was met least so far, and finds out what is left.
class Storm:
    def __init__(self, seed):
        self.random = random.Random(seed)
        self.met = Counter()  # kills by export or command line; None: of hosts between two calls
        self.planned = Counter()
        self.executor_seconds = 0.2  # that a whole run takes now
        self.parse = Promise('after a kill every state file parses')
        self.next = Promise('the next call succeeds, no lock stays stuck')
        self.lost = Promise('no acknowledged value is lost')
        self.twice = Promise('nothing arrives twice but what a killed process had in work')
        self.end = Promise('in the end all jobs end and all is sent')
        self.count = Counter()
        self.longest_next = 0

    def kills(self):
        return self.met.total()

    # Each second call, or each, is of the export that was met least.
    def start_host(self, app, treatment):
        exports = [name for name in EXPORTS
                   if treatment != 'kept' or name != 'DLLOnApplicationUninstall']
        focus = min(exports, key=lambda name: self.met[name] + self.planned[name])
        self.planned[focus] += 1
        mix = self.random.choices(exports, [SHARES.get(name, 6) for name in exports], k=100)
        if self.random.random() < 0.5:
            mix = [focus]
        calls = self.random.choice((0, self.random.randrange(12)))
        host = app.start_host([name for other in mix for name in (focus, other)], seconds=600)
        return Victim(app.name, host.process, 60, host, calls,
                      self.random.uniform(0, 0.03 if calls else 0.06))

    # It runs a command line that was met least. It ends by itself, so its moment is chosen from the
    # time that a whole run takes now.
    def start_executor(self, app, jobs):
        lines = [*jobs, UNKNOWN_JOB, f'--appid {app.name} --silent-update-check', '--version',
                 f'--status --appid {app.name}', '--status --json', '--help']
        self.random.shuffle(lines)
        named = [(next(name for name in COMMANDS if name in line), line) for line in lines]
        name, line = min(named, key=lambda pair: self.met[pair[0]] * COMMANDS[pair[0]])
        return Victim(name, application.start_executor(line),
                      self.random.uniform(0, self.executor_seconds + 0.02))

    # Rounds of kills; then what is known is sent, and compared with what was acknowledged.
    def run_application(self, name, treatment, kills):
        stage.begin()
        stage.WEB.delivered.clear()
        if treatment == 'removed':
            (stage.DATA / 'stayer').mkdir(parents=True)
            (stage.DATA / 'stayer/appinfo.xml').write_text(
                '<appinfo><Remove>0</Remove></appinfo>')
        app = Application(name, self.random, keeps_values=treatment != 'left',
                          keeps_states=treatment == 'kept')
        self.next.broken_by(name, *app.call('DLLOnApplicationStartup')[1])
        for _ in range(ROUNDS_OF_AN_APPLICATION):
            if self.kills() < kills:
                self.run_round(app, treatment)
        self.run_executors(application.waiting_executors())
        left = app.stores()
        self.count['blocks'] += len(stage.blocks_of(name))
        # Housekeeping takes blocks back that are older than 15 days.
        stage.set_times_back(name, 16 * stage.DAY)
        self.run_executors([UNKNOWN_JOB])
        # A removed application's block is sent again at once, and is then a new one.
        if any(time.time() - block.stat().st_mtime > stage.DAY for block in stage.blocks_of(name)):
            self.end.broken_by(name, 'an old block is not taken back')
        if not application.deliver([app]):
            self.end.broken_by(name, 'not all could be sent')
        self.count['acknowledged'] += app.acknowledged.total()
        self.count['twice'] += app.check_arrivals(left.in_work, self.lost, self.twice)

    def run_round(self, app, treatment):
        jobs = application.waiting_executors()
        victims = [self.start_host(app, treatment) if self.random.random() < 0.6
                   else self.start_executor(app, jobs) for _ in range(VICTIMS)]
        kill(victims)
        app.enter(*map(self.take_end, victims))
        self.met['--silent-update-check'] += application.kill_running_executors()
        stores = app.stores()
        self.parse.broken_by(app.name, *stores.faults)
        app.check_nothing_is_lost(stores, self.lost)
        self.make_next_calls(app, treatment)
        self.limit_jobs()

    # Counts the kill; returns what a host wrote.
    def take_end(self, victim):
        killed = victim.process.returncode == -signal.SIGKILL
        if not victim.host:
            self.met[victim.name] += killed
            return []
        diary = victim.host.finish()
        call = diary[-1].call if diary and diary[-1].sign == '?' else None
        self.next.broken_by(victim.name, *application.failures(diary))
        if killed:
            self.met[call] += 1
        else:
            # A process that Wine ended before its first line is none of ours; more than a few are.
            self.count['never there'] += not diary
            if diary or self.count['never there'] > FEW_STARTS:
                self.end.broken_by(victim.name, f'a host ended by itself in call {call}')
        return diary

    def make_next_calls(self, app, treatment):
        calls = ['AskService', 'DLLSetOptionalParam', 'DLLSetLocale', 'DLLGetLocale']
        # An application that stays removed takes the executor with it.
        if treatment != 'left' or self.random.random() < 0.5:
            calls.append('DLLOnApplicationStartup')
        if len(stage.jobs()) < FEW_JOBS:
            calls.append('DLLForceUpdateCheck')
        for _ in range(MOST_RESTARTS):
            diary, faults = app.call(*calls)
            app.enter(diary)
            if 'AskService failed' not in faults:
                break
            # A client that was killed in the middle of a call can leave Wine deaf for the service.
            say('the transfer service is restarted')
            stage.stop_service()
        self.next.broken_by(app.name, *faults)
        took = sum(entry.milliseconds for entry in diary
                   if entry.call in ('DLLSetOptionalParam', 'DLLSetLocale', 'DLLGetLocale'))
        self.longest_next = max(self.longest_next, took)

    # Leaves work for the executors of the next round, and not more than they list quickly.
    def limit_jobs(self):
        jobs = application.waiting_executors()
        if len(jobs) > MANY_JOBS:
            self.random.shuffle(jobs)
            start = time.monotonic()
            self.run_executors(jobs[FEW_JOBS:])
            self.executor_seconds = (time.monotonic() - start) / (len(jobs) - FEW_JOBS)

    # One after the other. One that says that it could touch nothing is started again, as the
    # service does it.
    def run_executors(self, lines):
        for line in lines:
            code = application.start_executor(line).wait(stage.PATIENCE)
            if code == 1:
                self.count['second starts'] += 1
                code = application.start_executor(line).wait(stage.PATIENCE)
            if code != 0:
                self.end.broken_by(line, f'exit code {code}')

    def print(self, seed):
        count = self.count
        tried = f'{self.kills()} kills, seed {seed}'
        values = f"{count['acknowledged']} values acknowledged"
        if count['second starts'] > FEW_STARTS:
            self.end.broken_by('executors', 'too many were started again')
        held = [
            self.parse.print(tried),
            self.next.print(tried, f', longest 3 calls {self.longest_next} ms'),
            self.lost.print(values),
            self.twice.print(values, f", {count['twice']} twice, {count['blocks']} blocks left"),
            self.end.print(tried, f", {count['never there']} hosts not started, "
                                  f"{count['second starts']} executors started twice")]
        if self.kills() >= ENOUGH_TO_MEET_ALL:
            held.append(self.print_met(tried))
        return all(held)

    def print_met(self, tried):
        promise = Promise(f'all {len(EXPORTS)} exports and {len(COMMANDS)} commands are met')
        exports, commands = (min(self.met[name] for name in names) for names in (EXPORTS, COMMANDS))
        if not exports or not commands:
            promise.broken_by('kills', 'not all are met')
        return promise.print(tried, f', {exports} or more kills in each, {commands} of each command')


def main(kills, seed):
    storm = Storm(seed)
    number = 0
    while storm.kills() < kills:
        storm.run_application(f'storm{number}', TREATMENTS[number % len(TREATMENTS)], kills)
        number += 1
        say(f'{storm.kills()} kills, {dict(storm.count)}')
    say(f'met: {dict(storm.met)}')
    return storm.print(seed)


sys.exit(0 if main(*map(int, sys.argv[1:])) else 1)

"""kills.py KILLS SEED: hosts and executors are killed at random moments, three at a time on one
application. After each three the files must parse, what a call acknowledged must be there or at the
web server, and the next calls must succeed."""

import random
import sys
import time
from collections import Counter

import world
from ledger import Ledger
from report import Promise, progress

VICTIMS = 3
ROUNDS_OF_AN_APPLICATION = 20
ENOUGH_TO_MEET_ALL = 500
FEW_STARTS = 3  # that Wine may fail to bring to their first line
FEW_JOBS, MANY_JOBS = 2, 5
MOST_RESTARTS = 10  # of the transfer service, in a row

# How an application is treated, in turns. "kept": never removed, so that all items are counted
# exactly. "removed": removed and registered again and again; another application keeps the
# executor. "left": the same without another one: the executor removes itself and what is known.
TREATMENTS = ("kept", "left", "kept", "removed", "kept", "kept")

# How often the hosts make each call; the other exports: 6.
SHARES = {"DLLSetOptionalParam": 20, "DLLDownloadAndInstallSilentUpdate": 1}

# The executor's command lines, in the order in which they are recognized. Those that only print are
# killed ten times less often.
COMMANDS = {"--suicide": 1, "--stat-callback": 1, "--update-check": 1, "--silent-update-check": 1,
            "--status --json": 10, "--status": 10, "--version": 10, "--help": 10, "--job": 1}


class Planner:
    """Chooses who is killed, and when: at random, from what was met least so far."""

    def __init__(self, seed):
        self.random = random.Random(seed)
        self.kills = Counter()  # by export or command line; None: of hosts between two calls
        self.planned = Counter()
        self.executor_seconds = 0.2  # that a whole run takes now

    def host_calls(self, exports):
        """A mix in which each second call, or each, is of the export that was met least."""
        focus = min(exports, key=lambda name: self.kills[name] + self.planned[name])
        self.planned[focus] += 1
        mix = self.random.choices(exports, [SHARES.get(name, 6) for name in exports], k=100)
        if self.random.random() < 0.5:
            mix = [focus]
        return [name for other in mix for name in (focus, other)]

    def executor_command(self, app, jobs):
        """A command line that was met least, and the name that its kills are counted by."""
        lines = [*jobs, world.UNKNOWN_JOB, f"--appid {app} --silent-update-check", "--version",
                 f"--status --appid {app}", "--status --json", "--help"]
        self.random.shuffle(lines)
        named = [(next(name for name in COMMANDS if name in line), line) for line in lines]
        return min(named, key=lambda pair: self.kills[pair[0]] * COMMANDS[pair[0]])


class Host:
    """It has begun when it is killed, and half of the hosts have made some calls. They are counted,
    since how many fit into a time depends on the machine."""

    def __init__(self, planner, app, name, exports):
        rand = planner.random
        self.name = name
        self.calls = rand.choice((0, rand.randrange(12)))
        self.delay = rand.uniform(0, 0.03 if self.calls else 0.06)
        self.latest = time.monotonic() + 60
        self.process = world.start_host(app, name, planner.host_calls(exports), seconds=600,
                                        seed=rand.randrange(2**32))

    def moment(self):
        diary = world.read_diary(self.name)
        returned = sum(line.sign != "?" for line in diary)
        if diary and returned >= self.calls:
            self.latest = min(self.latest, time.monotonic() + self.delay)
        return self.latest


class Executor:
    """It ends by itself, so its moment is chosen from the time that a whole run takes now."""

    def __init__(self, planner, app, jobs):
        self.name, arguments = planner.executor_command(app, jobs)
        latest = planner.random.uniform(0, planner.executor_seconds + 0.02)
        self.latest = time.monotonic() + latest
        self.process = world.start_executor(arguments)

    def moment(self):
        return self.latest


def kill(victims):
    """Kills each at its moment."""
    living = victims
    while living:
        for victim in living:
            if time.monotonic() >= victim.moment():
                victim.process.kill()
        time.sleep(0.002)
        living = [victim for victim in living if victim.process.poll() is None]


class Storm:
    """What is found out over all applications."""

    def __init__(self, seed):
        self.planner = Planner(seed)
        self.parse = Promise("after a kill every state file parses")
        self.next = Promise("the next call succeeds, no lock stays stuck")
        self.lost = Promise("no acknowledged value is lost")
        self.twice = Promise("nothing is counted twice but what a killed process had in work")
        self.end = Promise("in the end all jobs end and all is sent")
        self.count = Counter()
        self.longest_next = 0

    def kills(self):
        return self.planner.kills.total()

    def run_application(self, app, treatment, kills):
        """Rounds of kills; then what is known is sent, and compared with what was acknowledged."""
        world.empty_data()
        if treatment == "removed":
            (world.DATA / "stayer").mkdir(parents=True)
            (world.DATA / "stayer/appinfo.xml").write_text("<appinfo><Remove>0</Remove></appinfo>")
        ledger = Ledger(app, keeps_values=treatment != "left", keeps_states=treatment == "kept")
        exports = [name for name in world.EXPORTS
                   if treatment != "kept" or name != "DLLOnApplicationUninstall"]
        self.next.broken_by(world.call(app, app + ".first", ["DLLOnApplicationStartup"])[1], app)
        for number in range(ROUNDS_OF_AN_APPLICATION):
            if self.kills() < kills:
                self.run_round(ledger, f"{app}.{number}", exports, treatment)
        self.run_executors(world.jobs())
        left = world.read_stores(app)
        world.age_blocks(app)
        self.run_executors([world.UNKNOWN_JOB])
        if world.blocks_of(app):
            self.end.broken(app + ": an old block is not taken back")
        if not world.deliver([app]):
            self.end.broken(app + ": not all could be sent")
        self.count["blocks left"] += left.blocks
        self.count["acknowledged"] += ledger.acknowledged.total()
        self.count["twice"] += ledger.check_arrivals(left.in_work, self.lost, self.twice)

    def run_round(self, ledger, name, exports, treatment):
        app, jobs, victims = ledger.app, world.jobs(), []
        for i in range(VICTIMS):
            is_host = self.planner.random.random() < 0.6
            victims.append(Host(self.planner, app, f"{name}.{i}", exports) if is_host
                           else Executor(self.planner, app, jobs))
        kill(victims)
        ledger.enter([self.take_end(victim) for victim in victims])
        self.planner.kills["--silent-update-check"] += world.kill_running_executors()
        stores = world.read_stores(app)
        self.parse.broken_by(stores.faults, name)
        ledger.check_nothing_is_lost(stores, self.lost)
        self.make_next_calls(ledger, name, treatment)
        self.limit_jobs()

    def take_end(self, victim):
        """Counts the kill; returns what a host wrote."""
        name, code = victim.name, victim.process.returncode
        if isinstance(victim, Executor):
            self.planner.kills[name] += code == world.KILLED
            return []
        diary = world.take_diary(name)
        call = diary[-1].call if diary and diary[-1].sign == "?" else None
        self.next.broken_by(world.failures(diary), name)
        if code == world.KILLED:
            self.planner.kills[call] += 1
        else:
            how = f"{name} ended by itself with {code} in call {call}"
            progress(how)
            # A process that Wine ended before its first line is none of ours; more than a few are.
            self.count["never there"] += not diary
            if diary or self.count["never there"] > FEW_STARTS:
                self.end.broken(how)
        return diary

    def make_next_calls(self, ledger, name, treatment):
        calls = ["AskService", "DLLSetOptionalParam", "DLLSetLocale", "DLLGetLocale"]
        # An application that stays removed takes the executor with it.
        if treatment != "left" or self.planner.random.random() < 0.5:
            calls.append("DLLOnApplicationStartup")
        if len(world.jobs()) < FEW_JOBS:
            calls.append("DLLForceUpdateCheck")
        for attempt in range(MOST_RESTARTS):
            diary, faults = world.call(ledger.app, f"{name}.next{attempt}", calls)
            ledger.enter([diary])
            if "AskService failed" not in faults:
                break
            # A client that was killed in the middle of a call can leave Wine deaf for the service.
            progress("the transfer service is restarted")
            world.restart_service()
        self.next.broken_by(faults, name)
        self.longest_next = max(self.longest_next, sum(line.milliseconds for line in diary[2:8]))

    def limit_jobs(self):
        """Leaves work for the executors of the next round, and not more than they list quickly."""
        jobs = world.jobs()
        if len(jobs) > MANY_JOBS:
            self.planner.random.shuffle(jobs)
            start = time.monotonic()
            self.run_executors(jobs[FEW_JOBS:])
            self.planner.executor_seconds = (time.monotonic() - start) / (len(jobs) - FEW_JOBS)

    def run_executors(self, lines):
        """One after the other. One that says that it could touch nothing is started again, as the
        service does it."""
        for line in lines:
            code = world.start_executor(line).wait(world.PATIENCE_SECONDS)
            if code == 1:
                self.count["second starts"] += 1
                code = world.start_executor(line).wait(world.PATIENCE_SECONDS)
            if code != 0:
                self.end.broken(f"executor {line}: {code}")

    def print(self, seed):
        count = self.count
        tried = f"{self.kills()} kills, seed {seed}"
        values = f"{count['acknowledged']} values acknowledged"
        if count["second starts"] > FEW_STARTS:
            self.end.broken("too many executors were started again")
        blocks = f"({count['blocks left']} blocks were left in work)"
        starts = (f"{count['never there']} hosts that Wine did not start, "
                  f"{count['second starts']} executors started again")
        held = [
            self.parse.print(tried),
            self.next.print(tried, f", longest 3 calls {self.longest_next} ms"),
            self.lost.print(values),
            self.twice.print(values, f", {count['twice']} came twice {blocks}"),
            self.end.print(tried, ", " + starts),
            self.kills() < ENOUGH_TO_MEET_ALL or self.print_met(tried)]
        return all(held)

    def print_met(self, tried):
        met = Promise(f"all {len(world.EXPORTS)} exports and {len(COMMANDS)} command lines are met")
        exports = min(self.planner.kills[name] for name in world.EXPORTS)
        commands = min(self.planner.kills[name] for name in COMMANDS)
        if not exports or not commands:
            met.broken("not all")
        return met.print(tried, f", at least {exports} kills in each export, {commands} of each "
                         "command line")


def main(kills, seed):
    world.set_up()
    storm = Storm(seed)
    number = 0
    while storm.kills() < kills:
        storm.run_application(f"storm{number}", TREATMENTS[number % len(TREATMENTS)], kills)
        number += 1
        progress(f"{storm.kills()} kills, {dict(storm.count)}")
    progress(f"met: {dict(storm.planner.kills)}")
    return storm.print(seed)


if __name__ == "__main__":
    sys.exit(0 if main(*map(int, sys.argv[1:])) else 1)

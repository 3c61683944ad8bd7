"""A private Wine prefix: its programs, its transfer service, and the files they leave."""

import contextlib
import os
import pathlib
import shutil
import signal
import subprocess
import time
import urllib.parse
from collections import Counter, namedtuple
from xml.etree import ElementTree

BUILD = pathlib.Path(os.environ["BUILD"])
USER = pathlib.Path(os.environ["WINEPREFIX"], "drive_c/users", os.environ["USER"], "AppData")
DATA = USER / "LocalLow/Krelix/Updater"
SERVICE = pathlib.Path(os.environ["STANDIN"])
DIARIES = SERVICE / "diaries"
ACCESS_LOG = pathlib.Path(os.environ["WEB_ACCESS_LOG"])
WEB = os.environ["WEB_URL"]

EXPORTS = [line.split()[1] for line in (BUILD.parent / "scripts/exports.txt").open()]
# What a host can call, by the number that host.cpp takes less one.
CALLS = [*EXPORTS, "AddAction", "AskService"]

# The executor under test is a copy, since it may remove itself.
EXECUTOR = SERVICE / "program folder/kupdate-exec.exe"
PATIENCE_SECONDS = 120
KILLED = -signal.SIGKILL
UNKNOWN_JOB = "--job {00000000-0000-0000-0000-000000000001}"

DiaryLine = namedtuple("DiaryLine", "sign call item milliseconds")
Stores = namedtuple("Stores", "faults waiting in_work blocks locale")


def set_up():
    DIARIES.mkdir()
    os.environ["KUPDATE_EXEC"] = windows_path(EXECUTOR)
    www = pathlib.Path(os.environ["WWW"])
    (www / "report").write_text("ok")
    (www / "feed.rss").write_text(
        "<rss><channel><item><version:version>2.0.0.0</version:version>"
        "<version:status>release</version:status><guid>http://127.0.0.1/none</guid>"
        "</item></channel></rss>"
    )


def windows_path(path):
    return "Z:" + str(path).replace("/", "\\")


def empty_data():
    for folder in DATA, USER / "Local/Krelix/Updater":
        shutil.rmtree(folder, ignore_errors=True)


def eventually(condition, seconds=20):
    """Asks until the condition is met; returns whether it was."""
    end = time.monotonic() + seconds
    while not (met := condition()) and time.monotonic() < end:
        time.sleep(0.02)
    return met


# --- programs ---


def start(program, *arguments, output=subprocess.DEVNULL):
    return subprocess.Popen(["wine", program, *map(str, arguments)], stdin=subprocess.DEVNULL,
                            stdout=output, stderr=subprocess.DEVNULL)


def start_host(app, name, calls, *, real_executor=False, feed=WEB + "/feed.rss", seed=0, seconds=0):
    """host.cpp says what a host does. Its jobs wait for us when they name no real executor."""
    make_executor()
    diary_of(name).touch()
    executor = windows_path(EXECUTOR) if real_executor else r"C:\none\kupdate-exec.exe"
    longest_wait = 5000 if real_executor else 20
    return start(BUILD / "win64/proof/kills_host.exe", app, windows_path(diary_of(name)), seed,
                 executor, feed, WEB + "/report", longest_wait, seconds,
                 *(CALLS.index(call) + 1 for call in calls))


def diary_of(name):
    return DIARIES / (name + ".txt")


def read_diary(name):
    lines = map(str.split, diary_of(name).read_text().splitlines())
    return [DiaryLine(sign, CALLS[int(number) - 1], item, int(milliseconds))
            for sign, number, item, milliseconds in lines]


def take_diary(name):
    diary = read_diary(name)
    diary_of(name).unlink()
    return diary


def failures(diary):
    return [f"{line.call} failed" for line in diary if line.sign == "x"]


def stands_still(name):
    return time.time() - diary_of(name).stat().st_mtime > PATIENCE_SECONDS


def call(app, name, calls, **settings):
    """Makes calls in a host of their own; returns its diary and its faults."""
    code = start_host(app, name, calls, **settings).wait(PATIENCE_SECONDS)
    diary = take_diary(name)
    return diary, failures(diary) + ([f"the host ended with {code}"] if code else [])


def make_executor():
    if not EXECUTOR.exists():
        EXECUTOR.parent.mkdir(parents=True, exist_ok=True)
        shutil.copy(BUILD / "win64/src/executor/kupdate-exec.exe", EXECUTOR)


def start_executor(arguments):
    make_executor()
    return start(EXECUTOR, *(word.strip('"') for word in arguments.split()))


def running_executors():
    """The processes of the executor under test, whoever started them."""
    program = windows_path(EXECUTOR).encode()
    found = []
    for process in pathlib.Path("/proc").glob("[0-9]*"):
        with contextlib.suppress(OSError):  # it has ended
            # The service does not quote the path: its blank parts two arguments.
            if program in (process / "cmdline").read_bytes().replace(b"\0", b" "):
                found.append(int(process.name))
    return found


def kill_running_executors():
    killed = running_executors()
    for process in killed:
        with contextlib.suppress(ProcessLookupError):
            os.kill(process, signal.SIGKILL)
    eventually(lambda: not running_executors())
    return len(killed)


# --- the transfer service ---


def jobs():
    """The arguments with which the service would start each job's executor; a job without any is
    ended by its id."""
    found = []
    for line in (SERVICE / "jobs.txt").read_text().splitlines():
        key, _, value = line.partition(" ")
        if key == "job":
            found.append("--job " + value)
        elif key == "notify-parameters" and " --" in value:
            found[-1] = urllib.parse.unquote(value[value.index(" --") + 1 :])
    return found


def restart_service():
    """It keeps its jobs."""
    start(BUILD / "win64/standin/kupdate-standin.exe", "--stop").wait()


def deliver(apps):
    """Sends all that waits, through executors that the service starts. Returns whether all was
    sent."""
    for number in range(200):
        for app in apps:
            call(app, f"{app}.send{number}", ["DLLOnApplicationStartup", "DLLForceUpdateCheck"],
                 real_executor=True, feed="")
        while left := len(jobs()):
            if not eventually(lambda: len(jobs()) < left):
                return False
        if not eventually(lambda: not running_executors()):
            return False
        # The service limits a user's jobs.
        apps = [app for app in apps if read_stores(app).waiting or read_stores(app).blocks]
        if not apps:
            return True
    return False


# --- files ---


def blocks_of(app):
    return list((DATA / app).glob("in_work_*.xml"))


def read_stores(app):
    """Reads an application's files as they are, when nobody writes. What was found not to parse is
    a fault too."""
    faults = [file.name for file in (DATA / app).glob("*.bak")]
    counts = {"waiting": Counter(), "in_work": Counter()}
    locale = ""
    for file in (DATA / app).glob("*.xml"):
        try:
            root = ElementTree.parse(file).getroot()
        except ElementTree.ParseError as error:
            faults.append(f"{file.name}: {error}")
            continue
        if root.tag != ("appinfo" if file.name in ("appinfo.xml", "updinfo.xml") else "statistics"):
            faults.append(f"{file.name}: its root is {root.tag}")
        if file.name == "appinfo.xml":
            locale = root.findtext("Locale", "")
        elif root.tag == "statistics":
            place = "waiting" if file.name == "statistics.xml" else "in_work"
            counts[place].update(item.text for section in root for item in section)
    return Stores(faults, **counts, blocks=len(blocks_of(app)), locale=locale)


def age_blocks(app):
    """Housekeeping takes blocks back that are older than 15 days."""
    for file in blocks_of(app):
        os.utime(file, (time.time() - 16 * 86400,) * 2)


def arrived(app, log_start):
    """The items of all reports of an application behind a position in the web server's log."""
    items = Counter()
    with ACCESS_LOG.open("rb") as log:
        log.seek(log_start)
        lines = log.read().decode().splitlines()
    for line in lines:  # "GET /report?krsoft=app&...&stat=dayuse&p1=1&action=a1,a2&fd=... 200 2"
        begin = f"GET /report?krsoft={app}&"
        if line.startswith(begin) and " 200 " in line:
            query = line[len(begin) : line.index(" 200 ")].replace(",", "&").split("&")
            items.update(item.removeprefix("stat=").removeprefix("action=") for item in query)
    return items

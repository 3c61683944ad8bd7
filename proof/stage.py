# A private Wine prefix: its hosts, executors and transfer service, and the files they leave.
import contextlib
import itertools
import os
import pathlib
import re
import shutil
import subprocess
import time
import urllib.parse
from collections import Counter, namedtuple
from xml.etree import ElementTree

from report import windows_path
from web import WebServer

DAY = 86400  # seconds
RETRY = 700  # the service's delay, and some more
PATIENCE = 120  # seconds that a program may stand still
FEED = (b'<?xml version="1.0" encoding="utf-8"?><rss version="2.0"><channel><item>'
        b'<version:version>2.0.0.0</version:version><version:status>release</version:status>'
        b'<guid>http://127.0.0.1/none</guid></item></channel></rss>')

ROOT = pathlib.Path(__file__).resolve().parents[1]
BINARIES = ROOT / 'build/win64'
HOST = BINARIES / 'proof/proof_host.exe'
STANDIN = BINARIES / 'standin/kupdate-standin.exe'
GOOD_EXECUTOR = BINARIES / 'src/executor/kupdate-exec.exe'

_PREFIX = pathlib.Path(os.environ['WINEPREFIX'])
_USERS = _PREFIX / 'drive_c/users'
DATA, LOCAL, ROAMING = (_USERS / os.environ['USER'] / 'AppData' / kind / 'Krelix/Updater'
                        for kind in ('LocalLow', 'Local', 'Roaming'))
SERVICE = ROOT / 'build/standin' / _PREFIX.name
_JOBS, _JOURNAL = SERVICE / 'jobs.txt', SERVICE / 'journal.jsonl'

WEB = WebServer()

# A line of a host's diary, as host.cpp writes it.
Entry = namedtuple('Entry', 'sign milliseconds answer call item')


# Asks until the condition is met; returns whether it was.
def eventually(condition, seconds=20):
    end = time.monotonic() + seconds
    while not (met := condition()) and time.monotonic() < end:
        time.sleep(0.02)
    return met


# --- programs ---

def start(program, *arguments, stdin=subprocess.DEVNULL):
    # Output never goes to a pipe: Wine's own services would keep it open.
    return subprocess.Popen(['wine', program, *map(str, arguments)], stdin=stdin, text=True,
                            stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)


# A process of host.cpp, which says what its lines mean.
class Host:
    _numbers = itertools.count(1)

    def __init__(self, app, *lines, seconds=0, stays=False):
        self._diary = SERVICE / f'{app}.{next(self._numbers)}.diary'
        self._diary.touch()
        self.process = start(HOST, app, windows_path(self._diary), seconds, stdin=subprocess.PIPE)
        self.make(*lines)
        if not stays:
            self.process.stdin.close()

    def make(self, *lines):
        self.process.stdin.write('\n'.join([*lines, '']))
        self.process.stdin.flush()

    # The last line may not be whole yet.
    def diary(self):
        lines = (line.split(' ', 4) for line in self._diary.read_text('utf-8').split('\n')[:-1])
        return [Entry(sign, int(milliseconds), *rest) for sign, milliseconds, *rest in lines]

    # Waits until it ends, or stands still. Returns its diary.
    def finish(self):
        self.process.stdin.close()
        while (self.process.poll() is None and
               time.time() - self._diary.stat().st_mtime < PATIENCE):
            time.sleep(0.005)
        self.process.kill()
        self.process.wait()
        diary = self.diary()
        self._diary.unlink()
        return diary


def run_host(app, *lines):
    return Host(app, *lines).finish()


# Puts a copy where the library looks for the executor; None leaves the place empty.
def place_executor(program, place=ROAMING / 'kupdate-exec.exe'):
    place.unlink(missing_ok=True)
    if program:
        place.parent.mkdir(parents=True, exist_ok=True)
        shutil.copy(program, place)


# --- files ---

def _read(path):
    # Another process may replace or delete it meanwhile.
    with contextlib.suppress(FileNotFoundError):
        return path.read_text('utf-8', 'replace')
    return ''


def _files(*folders):
    return [file for folder in folders if folder.is_dir() for file in folder.iterdir()
            if file.is_file()]


def _temp_files():
    return _files(*_USERS.glob('*/Temp'), *_USERS.glob('*/AppData/Local/Temp'))


# The root element of a state file, and the items of its lists.
def parse(file):
    root = ElementTree.parse(file).getroot()
    return root, [item.text for section in root for item in section]


def _values(file):
    try:
        root, items = parse(file)
    except (FileNotFoundError, ElementTree.ParseError):
        return ''
    if file.name == 'appinfo.xml':
        return root.findtext('UpgradeAvailable', '')
    if file.name == 'updinfo.xml':
        return root.findtext('VerMajor') + '.' + root.findtext('VerMinor')
    confirmed = any(element.get('confirmed') == 'true' for element in root.iter())
    return ' '.join(items + ['confirmed'] * confirmed)


# The files, with the values that show how things stand:
# "appinfo.xml(1) in_work_0.xml(install p=1) statistics.xml(confirmed)". Logs are left out, and what
# each application has in the local folder; an id in a name reads "ID".
def files_of(app):
    words = []
    for file in _files(DATA / app, LOCAL / app) + _temp_files():
        if file.name in ('local.xml', 'answer.xml') or file.suffix == '.lock':
            continue
        name = 'BIT.tmp' if file.name.startswith('BIT') else file.name.replace(app, 'ID')
        values = _values(file) if file.suffix == '.xml' else ''
        words.append(f'{name}({values})' if values else name)
    return ' '.join(sorted(words))


def is_logged(text):
    return any(text in _read(log) for log in ROAMING.glob('*.log'))


def blocks_of(app):
    return list((DATA / app).glob('in_work_*.xml'))


# Lets time pass for an application's record and its blocks in work.
def set_times_back(app, seconds):
    record = DATA / app / 'appinfo.xml'
    if record.exists():
        record.write_text(re.sub(r'(?<=Time>)\d+(?=<)', lambda time: str(int(time[0]) - seconds),
                                 record.read_text('utf-8')), 'utf-8')
    for block in blocks_of(app):
        os.utime(block, (block.stat().st_mtime - seconds,) * 2)


# --- the service ---

# Writes the stand-in's control file. Its counting of calls starts again.
def control(*lines):
    (SERVICE / 'control.txt').write_text('\n'.join(lines), 'utf-8')


def stop_service():
    start(STANDIN, '--stop').wait()


def wake_service():
    start(STANDIN, '-Embedding')


# Nothing is stored, and the service begins with these jobs and an empty journal.
def begin(jobs=''):
    stop_service()
    control()
    _JOBS.write_text(jobs, 'utf-8')
    _JOURNAL.unlink(missing_ok=True)
    for folder in DATA, LOCAL:
        shutil.rmtree(folder, ignore_errors=True)
    for file in _temp_files() + list(ROAMING.glob('*.log')):
        file.unlink(missing_ok=True)


def change_jobs(change):
    stop_service()
    _JOBS.write_text(change(_read(_JOBS)), 'utf-8')


def set_job_times_back(seconds):
    if jobs():
        change_jobs(lambda text: re.sub(
            r'(?m)^(created|modified) (\d+)',
            lambda time: f'{time[1]} {int(time[2]) - seconds * 10_000_000}', text))
        wake_service()


def journal():
    return _read(_JOURNAL)


def executors_rest():
    entries = journal()
    return (entries.count('"event":"notify"') ==
            entries.count('"event":"notify_exit"') + entries.count('cannot be started'))


# The service's jobs, each a dict of what its file has.
def jobs():
    found = []
    for line in _read(_JOBS).splitlines():
        key, _, value = line.partition(' ')
        if key == 'job':
            found.append({})
        found[-1][key] = urllib.parse.unquote(value)
    return found


# Whose job it is; "bare" ones belong to hosts that drive a check.
def purpose(job):
    if job['name'] != 'Kupdate-task':
        return "another program's"
    parameters = job.get('notify-parameters', '')
    return ('check' if '--update-check' in parameters else
            'report' if '--stat-callback' in parameters else 'bare')


# The jobs as "check TRANSIENT_ERROR, report QUEUED x2".
# One whose bytes come in shows as CONNECTING: the service's file does not follow that.
def jobs_text():
    counts = Counter(f"{purpose(job)} {job['state']}" for job in jobs())
    return ', '.join(job + (f' x{count}' if count > 1 else '')
                     for job, count in sorted(counts.items())) or 'none'


# Whether the service is yet to try a transfer, or to start the executor, by itself.
def any_job_moves():
    return any(job.get('notice-due') == '1' or
               job['state'] in ('QUEUED', 'CONNECTING', 'TRANSIENT_ERROR') for job in jobs())


def is_fetching():
    return any(file.name.startswith('BIT') and _read(file) for file in _temp_files())


# --- reports ---

# An application's reports that the web server has, each from "stat=" on, in their order.
def reports(app):
    return [re.sub('.*&(stat=.*)&fd=.*', r'\1', address) for address in WEB.delivered
            if f'krsoft={app}&' in address]

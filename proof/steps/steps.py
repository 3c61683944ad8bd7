# steps.py PROMISE SYSTEM FOLDER LOG MODE [MOST]: hinders every operation of the library's stores in
# every way of a mode, judges what is left, and prints a row.
#   SYSTEM  native or windows
#   FOLDER  of the user's data; what it holds below "Krelix" is lost
#   LOG     a file elsewhere
#   MODE    stop    the process ends before its n-th file operation, for every n (native)
#           fail    the n-th file operation fails, for every n, with MOST codes (native)
#           full    the small file system of FOLDER has k free blocks, from 0 to MOST, with and
#                   without a free file
#           denied  files and folders may not be written; not for root, who may all the same
#           held    another program has a state file open (Windows)
import contextlib
import errno
import itertools
import pathlib
import re
import shutil
import subprocess
import sys
import time
from collections import Counter

from report import Promise, windows_path

APPS = ('app', 'Other app')
FIRST_VALUES = 'address long-locale locale'
MORE_VALUES = 'version no-locale read-locale should-check user-id'
STATISTICS = '''
    install parameter:p1 parameter:p2 parameter:p3 unique:u1 action:a1 last-state last-parameter
    read-unique cut take-back:0 cut confirm:0 uninstall unique:u2 parameter:p4 parameter:p5 send:2
    parameter:p6 parameter:p7 send:0 confirm:0 take-back:1'''
UPDATES = 'receive:2.0.0.0 judge forget receive:10.20.30.40 judge'
# One life of both applications, from no file at all.
OPERATIONS = [(app, *word.partition(':')[::2])
              for words, apps in ((FIRST_VALUES, APPS), (MORE_VALUES, APPS[:1]),
                                  (STATISTICS, APPS), (UPDATES, APPS[:1]))
              for app in apps for word in words.split()]

# What verbs may leave. The others: the state before or the one behind them, nothing between.
QUIET = ('forget',)  # logs no failure
REPEATABLE = ('version', 'confirm', 'judge')  # each value old or new; a second call completes them
TAKES_BACK = ('take-back',)  # what was sent before may be sent again
MOVES = ('cut', 'send', *TAKES_BACK)  # what is to be reported moves between files

CODES = (errno.ENOSPC, errno.EACCES, errno.EIO)
SHARES = (0, 1, 5, 3)  # none, reading; and deleting; and writing
BLOCK = 4096  # bytes
MOST_REPORTS = 20

ROOT = pathlib.Path(__file__).resolve().parents[2]


# A process of steps.cpp, the user's files that it works on, and its log.
class Runner:
    def __init__(self, system, folder, log):
        self.folder, self.log = folder, log
        program = [ROOT / 'build/native/proof/steps', log]
        if system == 'windows':
            program = ['wine', ROOT / 'build/win64/proof/steps.exe', windows_path(log)]
        self.replies = log.with_suffix('.replies').open('w+')
        self.process = subprocess.Popen(program, stdin=subprocess.PIPE, stdout=self.replies,
                                        stderr=subprocess.DEVNULL, text=True)
        self.replies = log.with_suffix('.replies').open()

    # Returns the reply.
    def do(self, verb, what='', text=''):
        self.process.stdin.write(f'{verb} "{what}" {text}\n'.replace('\\', '\\\\'))
        self.process.stdin.flush()
        reply = ''
        while not reply.endswith('\n'):
            time.sleep(0.0002)
            reply += self.replies.readline()
            if self.process.poll() is not None:
                raise ChildProcessError(f'the program ended in {verb} {what} {text}')
        return reply.strip()

    def _roots(self):
        return [self.folder / kind / 'Krelix' for kind in ('Local', 'LocalLow', 'Roaming')]

    # Bytes by path; a folder has none. Copies that did not parse, and new files under way, are no
    # state.
    def files(self):
        paths = [path for root in self._roots() if root.is_dir()
                 for path in (root, *root.rglob('*'))]
        return {path: None if path.is_dir() else path.read_bytes() for path in paths
                if path.suffix not in ('.new', '.bak')}

    def has_siblings(self):
        return any(any(root.rglob('*.new')) for root in self._roots())

    # The state files are these and no others, and the log is empty.
    def begin(self, files):
        for root in self._roots():
            shutil.rmtree(root, ignore_errors=True)
        for path, content in files.items():
            (path if content is None else path.parent).mkdir(parents=True, exist_ok=True)
            if content is not None:
                path.write_bytes(content)
        self.log.write_bytes(b'')

    # The lines of errors in the log, without their time.
    def errors(self):
        return {line[8:] for line in self.log.read_text('utf-8', 'replace').splitlines()
                if line[8:].startswith(' E:')}

    def sent(self):
        return tokens_of(line for line in self.log.read_bytes().splitlines()
                         if line.startswith(b'--- sent '))


# The lines of all files: a value stands in one, and the order of values does not matter.
def facts_of(files, before):
    facts = Counter()
    for path, content in files.items():
        if content is not None:
            # A new user id is another one each time.
            is_new_id = path.name == 'ui' and path not in before and len(content) == 38
            lines = [b'an id'] if is_new_id else content.splitlines()
            facts.update((path, line) for line in [b'', *lines])
    return facts


# Counts what is to be reported: it is marked "[app: name]".
def tokens_of(texts):
    # The last values are not reported.
    return Counter(token for text in texts
                   for token in re.findall(rb'\[.*?\]', text.partition(b'<last-state')[0]))


def is_report(path):
    return path.name == 'statistics.xml' or is_block(path)


def is_block(path):
    return path.name.startswith('in_work_')


def tokens_in(files, is_meant):
    return tokens_of(content for path, content in files.items()
                     if content is not None and is_meant(path))


# An operation between the states that it leads from and to when nothing hinders it.
class Passage:
    def __init__(self, runner, operation):
        self.app, self.verb, self.text = operation
        self.before = runner.files()
        runner.begin(self.before)
        self.run(runner)
        self.after = runner.files()
        self.errors = runner.errors()  # that it logs all the same
        self.facts_before, self.facts_after = (facts_of(files, self.before)
                                               for files in (self.before, self.after))

    def run(self, runner):
        return runner.do(self.verb, self.app, self.text)

    def changed_files(self):
        return [path for path, content in self.before.items()
                if content is not None and self.after.get(path) != content]


# One hindered operation, and what is wrong with what it left.
class Try:
    def __init__(self, runner, passage, hindrance):
        self.runner, self.passage = runner, passage
        runner.begin(passage.before)
        with hindrance:
            self.reply = passage.run(runner)
        self.files = runner.files()
        self.has_siblings = runner.has_siblings()
        self.facts = facts_of(self.files, passage.before)
        self.returned = self.reply.startswith(('hindered', 'undisturbed'))
        self.is_failure_logged = not runner.errors() <= passage.errors
        self.is_done = self.facts == passage.facts_after
        self.is_undone = not self.is_done and self.facts == passage.facts_before

    def is_in_two_files(self):
        return any(count > 1 for count in tokens_in(self.files, is_report).values())

    def faults(self, may_leave_siblings):
        if not self.returned and not self.reply.startswith('stopped'):
            return [self.reply]
        if self.has_siblings and not may_leave_siblings:
            return ['a sibling is left']
        return self._faults_of_files() or self._faults_of_next_calls()

    def _faults_of_files(self):
        verb, before, after = (self.passage.verb, self.passage.facts_before,
                               self.passage.facts_after)
        if self.is_done:
            return []
        if self.returned and verb not in QUIET and not self.is_failure_logged:
            return ['a failure is not in the log']
        if self.is_undone:
            return []
        if verb not in REPEATABLE + MOVES:
            return ['a step between the two states']
        # What is moved is judged by what arrives.
        wrong = [('neither old nor new', self.facts.keys() - before.keys() - after.keys()),
                 ('gone', (before.keys() & after.keys()) - self.facts.keys())]
        return [f'{what}: {fact}' for what, facts in wrong for fact in facts
                if verb in REPEATABLE or not is_report(fact[0])]

    # Repeats the operation where that is due, then lets both applications go on. Returns what
    # fails, is lost or is sent twice.
    def _faults_of_next_calls(self):
        runner, passage = self.runner, self.passage
        if passage.verb in REPEATABLE or self.is_undone:
            passage.run(runner)
            if facts_of(runner.files(), passage.before) != passage.facts_after:
                return ['a second call is not done']
        replies = [runner.do('probe', app) for app in APPS]
        for _ in range(MOST_REPORTS):
            end = runner.files()
            waiting = tokens_in(end, lambda path: path.name == 'statistics.xml')
            if not waiting:
                break
            replies += [runner.do('report', app) for app in APPS]
        sent, in_work = runner.sent(), tokens_in(end, is_block)
        before, after = (tokens_in(files, is_report) for files in (passage.before, passage.after))
        is_kept = self.is_done or (self.returned and not self.is_failure_logged)
        due = after if is_kept else after.keys() & before.keys()
        sent_before = tokens_in(passage.before, is_block) if passage.verb not in TAKES_BACK else {}
        return ([reply for reply in replies if reply != 'done'] +
                [f'lost: {token}' for token in due if token not in sent and token not in in_work] +
                [f'sent twice: {token}' for token, count in sent.items()
                 if count > 1 or token in sent_before] +
                [f'still waits: {token}' for token in waiting])


# --- the ways to hinder ---

@contextlib.contextmanager
def hindered(runner, what, how):
    runner.do('hinder', what, how)
    yield
    runner.do('hinder-nothing')


@contextlib.contextmanager
def denied(*paths):
    modes = [(path, path.stat().st_mode) for path in paths]
    for path, mode in modes:
        path.chmod(mode & ~0o222)
    yield
    for path, mode in modes:
        if path.exists():
            path.chmod(mode)


# Writes blocks until there are so many or the disk is full. Returns how many there are.
def write_blocks(path, most):
    with contextlib.suppress(OSError), path.open('wb', buffering=0) as file:
        for _ in range(most):
            file.write(b'f' * BLOCK)
    return path.stat().st_size // BLOCK


# Takes the room of the file system but for so many blocks, and its free files on demand.
@contextlib.contextmanager
def full(folder, blocks, takes_files):
    filler = folder / 'filler'
    filler.mkdir()
    if (write_blocks(filler / 'reserve', blocks) != blocks or
            write_blocks(filler / 'bytes', 2048) == 2048):
        raise OSError("the user's data is not on a small file system")
    (filler / 'reserve').unlink()
    with contextlib.suppress(OSError):
        for number in itertools.count() if takes_files else ():
            (filler / str(number)).touch()
    yield
    shutil.rmtree(filler)


# Label and hindrance of each try. A mode that counts steps goes on without end.
def hindrances_of(mode, most, runner, passage):
    if mode == 'full':
        return [(f'{blocks} blocks free, files taken: {takes}', full(runner.folder, blocks, takes))
                for blocks in range(most + 1) for takes in (False, True)]
    if mode == 'held':
        return [(f'{path} held, share mode {share}', hindered(runner, windows_path(path), share))
                for path in passage.changed_files() for share in SHARES]
    if mode == 'denied':
        return [(f'{paths} denied', denied(*paths)) for path in passage.changed_files()
                for paths in ((path,), (path.parent,), (path.parent, path))]
    if mode == 'stop':
        return ((f'step {number}', hindered(runner, number, 0)) for number in itertools.count(1))
    return ((f'step {number}, code {code}', hindered(runner, number, code))
            for number in itertools.count(1) for i in range(most)
            for code in [CODES[(number + i) % len(CODES)]])


def main(promise, system, folder, log, mode, most='0'):
    promise = Promise(promise)
    runner = Runner(system, pathlib.Path(folder), pathlib.Path(log))
    runner.begin({})
    count = Counter()
    for passage in [Passage(runner, operation) for operation in OPERATIONS]:
        for label, hindrance in hindrances_of(mode, int(most), runner, passage):
            attempt = Try(runner, passage, hindrance)
            if attempt.reply == 'undisturbed' and mode in ('stop', 'fail'):
                break  # it has fewer steps
            count.update(tries=1, done=attempt.is_done, undone=attempt.is_undone,
                         twice=attempt.is_in_two_files())
            promise.broken_by(f'{passage.verb} {passage.text}, {label}, {attempt.reply}',
                              *attempt.faults(mode in ('stop', 'fail')))
    if count['done'] == count['tries']:
        promise.broken_by(mode, 'nothing was hindered')
    between = count['tries'] - count['done'] - count['undone']
    return promise.print(
        f"{count['tries']} tries, {len(OPERATIONS)} operations",
        f", {count['done']} done, {count['undone']} undone, {between} between, "
        f"{count['twice']} in two files")


sys.exit(0 if main(*sys.argv[1:]) else 1)

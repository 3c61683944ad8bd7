# The executor apart from faults: what it tells people, tidies up over time, and its own end.
import shutil
import tempfile

import stage
from report import Promise
from stage import DAY, UNKNOWN_JOB, WEB
from web import NOT_FOUND, Answer, whole

LEAVE = 'DLLOnApplicationUninstall'


def start(feed='""', report='""'):
    feed, report = (path if path == '""' else WEB.url(path) for path in (feed, report))
    return f'DLLOnApplicationStartup {feed} {report} 3600'


def run(arguments):
    return stage.start_executor(arguments).wait(stage.PATIENCE)


# Makes the calls of an application. Returns the arguments of its newest job's executor, which the
# service does not find.
def executor_after(app, *calls):
    stage.run_host(app, *calls)
    stage.eventually(lambda: all(job['state'] in ('TRANSFERRED', 'ERROR') for job in stage.jobs()))
    return stage.waiting_executors()[-1]


# What cannot be found in what the executor prints.
def missing(arguments, *words):
    with tempfile.TemporaryFile('w+') as output:
        stage.start_executor(arguments, output).wait()
        output.seek(0)
        text = output.read()
    return [f'{word} in {text}' for word in words if word not in text]


# Each story yields what was found beside what is wanted.
def people_are_told():
    executor_after('told', start(feed='missing'))
    yield missing('--help', '--silent-update-check'), []
    yield missing('--version', 'kupdate-exec 1.'), []
    yield missing('--status', 'TEST BUILD. Updates need a manifest signed with one of these keys: ',
                  'Application "told"', 'check of told'), []
    yield missing('--status --appid told --json', '{"program":',
                  '"purpose":"check","appId":"told"'), []
    yield missing('--status --appid other --json', '"applications":[],"jobs":[]'), []
    yield [run('--update-check'), run(UNKNOWN_JOB)], [2, 0]


def a_record_is_not_brought_back_to_life():
    arguments = executor_after('left', start(feed='feed'))
    (stage.DATA / 'left/appinfo.xml').unlink()
    shutil.rmtree(stage.LOCAL / 'left')
    yield run(arguments), 0
    yield stage.files_of('left'), 'statistics.xml(install)'
    yield list(stage.LOCAL.glob('left')), []


def an_old_block_without_a_job_is_taken_back():
    arguments = executor_after('old', start(report='report'))
    stage.set_times_back('old', 16 * DAY)
    run(UNKNOWN_JOB)
    yield len(stage.blocks_of('old')), 1
    stage.set_times_back('old', -2 * DAY)
    run(arguments[arguments.index('--job'):])
    yield len(stage.blocks_of('old')), 1
    stage.set_times_back('old', 2 * DAY)
    run(UNKNOWN_JOB)
    yield len(stage.blocks_of('old')), 0


def an_uninstalled_application_is_forgotten():
    stage.run_host('stayer', start())  # else the executor would go with its last application
    for app, returns in ('leaver', False), ('returner', True):
        run(executor_after(app, start(report='report')))
        arguments = executor_after(app, LEAVE)
        if returns:
            stage.run_host(app, start(report='report'))
        yield run(arguments), 0
        yield stage.files_of(app), 'appinfo.xml ' * returns + 'statistics.xml(confirmed)'


def an_undelivered_uninstall_is_reported_once_more():
    stage.run_host('stayer', start())
    run(executor_after('unheard', start(report='missing')))
    for is_period_over in False, True:
        arguments = executor_after('unheard', LEAVE)
        stage.set_times_back('unheard', DAY * is_period_over)
        earlier = stage.journal().count('"call":"CreateJob"')
        yield run(arguments), 0
        yield stage.journal().count('"call":"CreateJob"') > earlier, is_period_over


def the_last_uninstall_removes_the_executor():
    def is_quiet():
        return not stage.jobs() and stage.executors_rest()
    executor = stage.path_of(stage.EXECUTOR)
    stage.place_executor(stage.GOOD_EXECUTOR, stage.EXECUTOR)
    for app in 'last', 'other':
        stage.run_host(app, executor, start(report='report'))
    stage.eventually(is_quiet)
    # A wish from days ago; by now another application needs the program.
    stage.EXECUTOR.with_name('kupdate-exec.exe.remove').write_text('last\n')
    stage.run_host('last', executor, LEAVE)
    yield stage.eventually(is_quiet) and stage.EXECUTOR.exists(), True
    yield '--suicide' in stage.journal(), False
    stage.run_host('other', executor, LEAVE)
    # The program, which was renamed, and the wish.
    yield stage.eventually(lambda: not list(stage.EXECUTOR.parent.iterdir())), True
    yield [file for folder in (stage.DATA, stage.LOCAL) for file in folder.rglob('*')], []


STORIES = (people_are_told, a_record_is_not_brought_back_to_life,
           an_old_block_without_a_job_is_taken_back, an_uninstalled_application_is_forgotten,
           an_undelivered_uninstall_is_reported_once_more, the_last_uninstall_removes_the_executor)


def tell():
    held = []
    for story in STORIES:
        promise = Promise(story.__name__.replace('_', ' '))
        stage.begin()
        stage.place_executor(None)
        WEB.answers = {'feed': Answer(whole(stage.FEED)), 'report': Answer(whole(b'ok')),
                       'missing': NOT_FOUND}
        for number, (found, want) in enumerate(story()):
            if found != want:
                promise.broken_by(f'{promise.text}, {number}', f'{found} instead of {want}')
        held.append(promise.print('one story'))
    return all(held)

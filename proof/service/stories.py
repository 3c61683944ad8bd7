# Hosts and the executor apart from faults: checks step by step, the jobs that they make, and what
# the executor tells people, what it tidies up over time, and its own end.
import json
import re
import shutil
import tempfile
import time

import stage
from fault_table import OLD_FEED
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


# What the service was given in its calls of one name. Ids, folders and the server's address, which
# change, are left out.
def calls(name, key):
    values = [entry[key] for entry in map(json.loads, stage.journal().splitlines())
              if entry.get('call') == name]
    return [re.sub(r'(?<=")C:.*\\|^http.*/', '', re.sub(r'\{.*?\}', 'ID', str(value)))
            for value in values]


# Each story yields what was found beside what is wanted.
def people_are_told():
    executor_after('told', start(feed='missing'))
    yield missing('--help', '--silent-update-check'), []
    yield missing('--version', 'kupdate-exec 1.'), []
    yield missing('--status', 'a build folder. Updates need a manifest signed with one of these keys: ',
                  'Application "told"', 'check of told'), []
    yield missing('--status --appid told --json', '{"program":',
                  '"purpose":"check","appId":"told"'), []
    yield missing('--status --appid other --json', '"applications":[],"jobs":[]'), []
    yield [run('--update-check'), run(UNKNOWN_JOB)], [2, 0]


def a_host_steps_through_its_check():
    host = stage.Host('steps', stays=True)
    for step, feed, want, line in (
            ('check', WEB.url('feed'), 'failed', 'Job not started!'),
            ('stop', WEB.url('feed'), 'failed', 'Nothing to stop! No Job started!'),
            ('start', '""', 'failed', 'You should specify VersionUrl to rss.'),
            ('Start', '""', 'failed', 'Unknown operation:  Start'),
            ('start', WEB.url('feed'), '0', 'Successfully add job to BITS.'),
            ('start', WEB.url('feed'), '0', 'We already wait for update.')):
        yield host.ask(f'DLLIsUpdateAvailable {feed} {step}'), want
        yield stage.is_logged(line), True
    yield len(stage.jobs()), 1
    for state, want in dict(QUEUED='0', CONNECTING='0', TRANSFERRING='0', SUSPENDED='0',
                            TRANSIENT_ERROR='0', ERROR='3', CANCELLED='3').items():
        host.ask(f"DLLIsUpdateAvailable {WEB.url('feed')} start")
        stage.control(f'states {state}')
        yield host.ask(f"DLLIsUpdateAvailable {WEB.url('feed')} check"), want
        stage.control()


def the_service_gets_jobs_as_it_needs_them():
    executor = 'DLLSetExecutorPath "C:\\\\none\\\\a b.exe"'
    both = start('feed', 'report')
    stage.run_host('jobs', executor, 'DLLSetOptionalParam tool=1', 'DLLSetUniqueParam name=1',
                   both, both, 'DLLUsageReport x=%20&y')
    yield len(calls('CreateJob', 'name')), 2  # the next ones are due in a day
    stage.run_host('jobs', executor, 'DLLForceUpdateCheck')
    stage.run_host('no-address', executor, start())
    # An address of reports that is too long keeps no program from updating.
    stage.run_host('long', executor, start('feed', 'r?' + 'a' * 1100))
    stage.run_host('jobs', executor, 'DLLOnApplicationUninstall', 'DLLForceUpdateCheck')
    yield calls('CreateJob', 'name'), ['Kupdate-task'] * 6
    yield calls('SetPriority', 'priority'), ['2'] * 6
    yield calls('SetNoProgressTimeout', 'seconds'), [
        '1209600', '82800', '86400', '82800', '82800', '1209600']
    check = ' --appid {0} --update-check --file "kupdate-versioninfo-{0}.xml"'.format
    report = ' --stat-callback {} --appid jobs'.format
    yield calls('SetNotifyCmdLine', 'parameters'), [
        r'C:\none\a b.exe ' + arguments + ' --job ID' for arguments in (
            report(0), check('jobs'), report(1), check('jobs'), check('long'), report(2))]
    today = time.strftime('%d.%m.%Y')
    address = 'report?krsoft=jobs&ui=ID&ver=1.0.0.0&os=win64&stat={}&fd=' + today
    yield calls('AddFile', 'url'), [
        address.format('install&tool=1&name=1'), 'feed', address.format('dayuse&x=%20&y'), 'feed',
        'feed', address.format('uninstall')]


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
    # An author's own program, which has no installer to bring it back.
    keep = stage.EXECUTOR.with_name('kupdate-exec.exe.keep')
    keep.touch()
    stage.run_host('other', executor, LEAVE)
    data = stage.DATA / 'other/appinfo.xml'
    yield stage.eventually(lambda: is_quiet() and not data.exists()), True
    yield stage.EXECUTOR.exists(), True
    keep.unlink()
    stage.run_host('other', executor, start(report='report'))
    stage.eventually(is_quiet)
    stage.run_host('other', executor, LEAVE)
    # The program, which was renamed, the wish, and their folder.
    yield stage.eventually(lambda: not stage.EXECUTOR.parent.exists()), True
    yield [file for folder in (stage.DATA, stage.LOCAL) for file in folder.rglob('*')], []


def the_chosen_channel_lasts():
    yield run('--set-channel beta --appid chooser'), 5  # not registered yet
    stage.run_host('chooser', start())
    record = stage.DATA / 'chooser/appinfo.xml'
    for channel, flag in ('beta', '1'), ('release', '0'):
        yield run(f'--set-channel {channel} --appid chooser'), 0
        yield missing('--status --json', f'"channel":"{channel}"'), []
        # Any process may change the store; the next start of the program repairs it.
        text, wanted = record.read_text('utf-8'), f'<WantUnstableToo>{flag}<'
        yield wanted in text, True
        record.write_text(text.replace(wanted, '<WantUnstableToo>2<'), 'utf-8')
        stage.run_host('chooser', start())
        yield wanted in record.read_text('utf-8'), True
    stage.run_host('chooser', LEAVE)
    yield run('--set-channel beta --appid chooser'), 5


def a_host_waits_for_its_own_answer():
    wait = 'DLLIsUpgradeAvailable'
    stage.control('fail CreateInstance 0x80070005')
    # A report that cannot be sent takes no time away from the wait.
    host = stage.Host('waits', start('feed', 'r?' + 'a' * 1100), f'{wait} -1', stays=True)
    stage.eventually(lambda: stage.is_logged('so there is no answer to wait for.'))
    stage.control()
    WEB.answers['feed'] = Answer(whole(OLD_FEED))
    host.make(f'{wait} 0')
    stage.eventually(lambda: '"event":"transferred"' in stage.journal())
    WEB.answers['feed'] = Answer(whole(stage.FEED))
    host.make(f'{wait} 20000')
    stage.eventually(lambda: stage.journal().count('"event":"transferred"') == 2)
    older, own = stage.waiting_executors()
    run(f'--appid waits --update-check --file f {UNKNOWN_JOB}')
    yield run(older), 0
    yield stage.is_logged('The signal of another check or installation: waiting on.'), True
    yield run(own), 0
    yield [entry.answer for entry in host.finish() if (entry.sign, entry.call) == ('!', wait)], \
        ['none', 'none', 'found']
    yield stage.is_logged('WAIT_TIMEOUT'), True


STORIES = (people_are_told, the_chosen_channel_lasts, a_host_waits_for_its_own_answer, a_host_steps_through_its_check,
           the_service_gets_jobs_as_it_needs_them, a_record_is_not_brought_back_to_life,
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

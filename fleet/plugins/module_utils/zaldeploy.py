"""Runs zaldeploy on a host and puts what it prints into words."""
import json

SCHEMA_NUMBER = 1
# Exit status, of a package and of all, from which on something is wrong.
PROBLEM = 3


def arguments(**more):
    """The arguments that say how zaldeploy is run, and more."""
    return dict(
        zaldeploy=dict(type='path', default='zaldeploy'),
        server=dict(type='path'),
        packages=dict(type='list', elements='path'),
        only=dict(type='list', elements='str', default=[]),
        trust=dict(type='list', elements='path', default=[]),
        allow_unsigned=dict(type='bool', default=False),
        timeout=dict(type='float', default=300),
        wait=dict(type='float', default=0),
        **more)


def run(module, command, *options):
    """What zaldeploy prints for a command; the module fails where that is no result."""
    program = module.params['zaldeploy']
    if '/' not in program:
        program = module.get_bin_path(program, required=True)
    words = [program, command, '--json']
    if module.params['server']:
        words += ['--server', module.params['server']]
    code, out, error = module.run_command(words + list(options))
    try:
        result = json.loads(out)
        number = result['schema']['number']
    except (ValueError, KeyError, TypeError):
        module.fail_json(msg='zaldeploy ended with status %d and printed no result. %s' % (code, error.strip()),
                         status=code, stdout=out)
    if number != SCHEMA_NUMBER:
        module.fail_json(msg='zaldeploy prints results of schema %s; this collection reads %d. Use the collection that '
                             'came with this zaldeploy.' % (number, SCHEMA_NUMBER))
    if result['schema']['name'] == 'zaldeploy.error':
        module.fail_json(msg='zaldeploy: %s.' % result['message'], status=result['status'])
    return result


def run_options(module):
    """The options that every command takes which runs installers."""
    params = module.params
    options = ['--timeout', '%g' % params['timeout']]
    if params['wait']:
        options += ['--wait', '%g' % params['wait']]
    if params['allow_unsigned']:
        options.append('--allow-unsigned')
    for key in params['trust']:
        options += ['--trust', key]
    return options


def package_options(module):
    """The options of commands that take folders of packages, and the folders."""
    options = run_options(module)
    for name in module.params['only']:
        options += ['--only', name]
    return options + ['--'] + module.params['packages']


def is_offered(package):
    return package['verdict'] == 'install'


def waits_for_restart(package):
    outcome = package.get('outcome')
    return outcome['result'] == 'installed, restart' if outcome else package['verdict'] == 'waiting'


def was_written(package):
    """Whether an installation has, or may have, changed the device."""
    outcome = package.get('outcome')
    if not outcome or outcome['result'] in ('runs already', 'not run'):
        return False
    return outcome['result'] != 'failed' or outcome['left'] != 'untouched'


def step(package):
    """From which version to which."""
    return '%s from %s to %s' % (package['device'] or package['component'], package['current'] or 'nothing',
                                 package['offered'])


def problems(packages):
    """The sentence of each package with which something is wrong."""
    return ['%s: %s' % (package['component'], package['outcome']['message'] if 'outcome' in package else package['why'])
            for package in packages if package['status'] >= PROBLEM]


def message(packages, tense):
    """What is to be told of a run: what is wrong, else what was or would be done."""
    wrong = problems(packages)
    if wrong:
        return ' '.join(wrong)
    steps = [step(package) for package in packages if was_written(package) or is_offered(package)]
    words = ['%s %s.' % (tense, ', '.join(steps))] if steps else []
    if any(waits_for_restart(package) for package in packages):
        words.append('Restart the server: what was installed takes effect then.')
    return ' '.join(words) or 'All is well.'


def versions(packages, member):
    """A line for each package that is, or was, to be installed, for a diff."""
    return ''.join('%s %s\n' % (package['component'], package[member])
                   for package in packages if was_written(package) or is_offered(package))

#!/usr/bin/python
"""Brings the firmware of a server into a state."""

DOCUMENTATION = r'''
module: firmware
short_description: Bring the firmware of a server into a state
description:
  - Runs C(zaldeploy), which runs what a trusted author has signed, and nothing else.
  - Does not restart the server; C(restart_needed) tells that it has to be. The role C(flashlib.fleet.firmware) does.
author: FlashLib developers
extends_documentation_fragment: flashlib.fleet.zaldeploy
options:
  state:
    description:
      - C(planned) tells what the packages offer, and changes nothing.
      - C(latest) installs it.
      - C(restored) puts back the firmware that an installation has replaced, of the devices in C(only). A device whose
        last installation was such a way back is left alone.
    type: str
    choices: [planned, latest, restored]
    default: latest
  packages:
    description: Folders on the host that are packages, or hold several. Needed but for C(state=restored).
  only:
    description:
      - Names of packages, components or devices; all others are left out.
      - With C(state=restored) devices, of which what was kept last is put back, or files of kept images. Needed there.
  force:
    description: Write the same version again, and go back to an older one.
    type: bool
    default: false
attributes:
  check_mode:
    support: full
    description: Is the plan.
  diff_mode:
    support: full
    description: Shows the versions before and after.
'''

EXAMPLES = r'''
- name: Bring all firmware up to date
  flashlib.fleet.firmware:
    packages: /var/lib/flashlib/packages
  register: installed

- name: Restart where that is needed
  ansible.builtin.reboot:
  when: installed.restart_needed

- name: Put the old ROM back
  flashlib.fleet.firmware:
    state: restored
    only: P70
'''

RETURN = r'''
msg:
  description: What was or would be done, or what is wrong, what state the device is in and what to do.
  returned: always
  type: str
  sample: "Installed: TMBR from 1.2.5 to 1.3.2."
restart_needed:
  description: Something takes effect when the server is restarted.
  returned: when zaldeploy could run
  type: bool
offered:
  description: Devices for which something is offered and was not installed.
  returned: when zaldeploy could run
  type: list
  elements: str
packages:
  description: What zaldeploy tells of each package, as docs/zaldeploy.schema.json describes it.
  returned: when zaldeploy could run
  type: list
  elements: dict
interrupted:
  description: Devices whose last installation had been interrupted before this run, as by a power cut.
  returned: when zaldeploy could run
  type: list
  elements: str
product:
  description: The server, as SMBIOS tells; null where that can't be read.
  returned: when zaldeploy could run
  type: str
serial:
  description: Its serial number.
  returned: when zaldeploy could run
  type: str
log:
  description: File of the debug log on the host.
  returned: when zaldeploy could run
  type: str
status:
  description: Exit status of zaldeploy.
  returned: when zaldeploy has printed a result
  type: int
'''

from ansible.module_utils.basic import AnsibleModule
from ansible_collections.flashlib.fleet.plugins.module_utils import zaldeploy

BACKUP = '/var/lib/flashlib/backup/'


def deploy(module):
    """Installs what the packages offer; a plan only tells it."""
    only_plan = module.check_mode or module.params['state'] == 'planned'
    options = ['plan'] if only_plan else ['install', '--yes']
    if module.params['force']:
        options.append('--force')
    return zaldeploy.run(module, *(options + zaldeploy.package_options(module)))


def last_entry(module, name):
    """What the history tells of the last installation for a device; empty where there was none."""
    for entry in zaldeploy.run(module, 'history')['entries']:
        if entry['device'].lower() == name.lower():
            return entry
    return {}


def restored_before(module, name):
    """What is to be told of a device whose last installation was a way back; None where it was not."""
    package = last_entry(module, name).get('package', '')
    if BACKUP not in package:
        return None
    # The first to ask after a restart finds out what came of the installation.
    told = zaldeploy.run(module, 'plan', *(zaldeploy.run_options(module) + ['--', package]))
    if told['packages'][0]['verdict'] == 'waiting':
        return told
    if last_entry(module, name)['result'] not in ('installed', 'runs already'):
        return None
    return left_alone(told)


def left_alone(told):
    """The same, where the device runs what it is to run."""
    package = told['packages'][0]
    package.update(verdict='current', offered=package['current'], why='', status=0)
    return dict(told, status=0)


def restore(module, name):
    """Puts back what is kept of a device, unless that runs already."""
    told = None if module.params['force'] else restored_before(module, name)
    if told:
        return told
    options = zaldeploy.run_options(module) + ['--', name]
    plan = zaldeploy.run(module, 'restore', '--dry-run', *options)
    package = plan['packages'][0]
    if package['action'] == 'rewrite' and not module.params['force']:
        return left_alone(plan)
    if module.check_mode or not zaldeploy.is_offered(package):
        return plan
    return zaldeploy.run(module, 'restore', '--yes', *options)


def end(module, results):
    """Tells what came of it."""
    packages = [package for result in results for package in result['packages']]
    for package in packages:
        package.pop('command', None)  # names a copy that is gone
    status = max([result['status'] for result in results] or [0])
    only_plan = module.check_mode or module.params['state'] == 'planned'
    offered = [package for package in packages if zaldeploy.is_offered(package) and 'outcome' not in package]
    interrupted = sorted({entry['device'] for result in results for entry in result['unfinished']
                          if entry['result'] == 'interrupted'})
    words = ['The last installation for %s was interrupted.' % ', '.join(interrupted)] if interrupted else []
    words.append(zaldeploy.message(packages, 'Offered:' if only_plan else 'Installed:'))
    told = dict(
        changed=any(map(zaldeploy.was_written, packages)) or bool(offered and module.params['state'] != 'planned'),
        msg=' '.join(words),
        restart_needed=any(map(zaldeploy.waits_for_restart, packages)),
        offered=[package['device'] or package['component'] for package in offered],
        interrupted=interrupted,
        packages=packages,
        status=status)
    for member in ('product', 'serial', 'log'):
        told[member] = results[0][member] if results else None
    if module._diff:
        told['diff'] = dict(before=zaldeploy.versions(packages, 'current'),
                            after=zaldeploy.versions(packages, 'offered'))
    if status >= zaldeploy.PROBLEM:
        module.fail_json(**told)
    module.exit_json(**told)


def main():
    module = AnsibleModule(
        zaldeploy.arguments(state=dict(choices=['planned', 'latest', 'restored'], default='latest'),
                            force=dict(type='bool', default=False)),
        required_if=[('state', 'planned', ['packages']), ('state', 'latest', ['packages']),
                     ('state', 'restored', ['only'])],
        supports_check_mode=True)
    state = module.params['state']
    if state == 'restored':
        if not module.params['only']:
            module.fail_json(msg='state=restored needs the names of devices in only.')
        end(module, [restore(module, name) for name in module.params['only']])
    if not module.params['packages']:
        module.fail_json(msg='state=%s needs folders in packages.' % state)
    end(module, [deploy(module)])


if __name__ == '__main__':
    main()

#!/usr/bin/python
"""Keeps packages on a host, each once."""

DOCUMENTATION = r'''
module: packages
short_description: Copy firmware packages to a host, each once
description:
  - Copies packages from the controller into C(STORE/DIGEST/NAME). The digest is that of the package's list of files,
    so another version, or another signature's list, lies beside the old one, and what is there already is not copied
    again.
  - A package is there whole or not at all.
  - What is in a package is not checked here. C(zaldeploy) does, each time, before it runs any of it.
author: FlashLib developers
options:
  packages:
    description: Folders on the controller that are packages, or hold several.
    type: list
    elements: path
    required: true
  store:
    description: Folder on the host.
    type: path
    default: /var/lib/flashlib/packages
  wanted:
    description: Set by the action plugin. Digests and names.
    type: dict
    default: {}
  archives:
    description: Set by the action plugin. Digests, and files on the host with what is missing.
    type: dict
    default: {}
attributes:
  check_mode:
    support: full
    description: Tells what would be copied.
'''

EXAMPLES = r'''
- name: Copy the packages
  flashlib.fleet.packages:
    packages: [/srv/firmware/2026-11]
  register: copied

- name: Install them
  flashlib.fleet.firmware:
    packages: "{{ copied.paths }}"
'''

RETURN = r'''
paths:
  description: The folder on the host of each package.
  returned: success
  type: list
  elements: str
copied:
  description: Names of the packages that were copied.
  returned: success
  type: list
  elements: str
'''

import os
import shutil
import tarfile
import tempfile
import time

from ansible.module_utils.basic import AnsibleModule

UNFINISHED = '.new.'  # how the name of a folder begins that is not whole yet


def write(source, path, mode):
    """Writes a file that is on the disk when this ends."""
    with open(path, 'wb') as file:
        os.fchmod(file.fileno(), mode)
        shutil.copyfileobj(source, file)
        file.flush()
        os.fsync(file.fileno())


def clean(store):
    """Removes what a copy that was killed has left: none takes a day."""
    for name in os.listdir(store):
        path = os.path.join(store, name)
        if name.startswith(UNFINISHED) and os.path.getmtime(path) < time.time() - 24 * 3600:
            shutil.rmtree(path, ignore_errors=True)


def unpack(archive, folder):
    """Makes a folder of an archive; there is none before it is whole."""
    store = os.path.dirname(os.path.dirname(folder))
    made = tempfile.mkdtemp(prefix=UNFINISHED, dir=store)
    try:
        package = os.path.join(made, os.path.basename(folder))
        os.mkdir(package, 0o755)
        os.chmod(made, 0o755)
        with tarfile.open(archive) as files:
            for member in files:
                if not member.isreg() or os.path.basename(member.name) != member.name:
                    raise ValueError('%s in the archive is no file of a package' % member.name)
                write(files.extractfile(member), os.path.join(package, member.name), member.mode & 0o755)
        os.rename(made, os.path.dirname(folder))
    finally:
        shutil.rmtree(made, ignore_errors=True)


def main():
    module = AnsibleModule(dict(packages=dict(type='list', elements='path', required=True),
                                store=dict(type='path', default='/var/lib/flashlib/packages'),
                                wanted=dict(type='dict', default={}),
                                archives=dict(type='dict', default={})), supports_check_mode=True)
    store, wanted = module.params['store'], module.params['wanted']
    paths = {digest: os.path.join(store, digest, name) for digest, name in wanted.items()}
    try:
        os.makedirs(store, 0o755, exist_ok=True)
        clean(store)
        for digest, archive in module.params['archives'].items():
            if not os.path.isdir(paths[digest]):
                unpack(archive, paths[digest])
    except (OSError, ValueError, tarfile.TarError) as error:
        module.fail_json(msg='The packages could not be copied to %s: %s. The firmware was not touched.' % (store, error))
    module.exit_json(changed=bool(module.params['archives']), paths=sorted(paths.values(), key=os.path.basename),
                     missing=sorted(digest for digest in paths if not os.path.isdir(paths[digest])),
                     copied=sorted(wanted[digest] for digest in module.params['archives']))


if __name__ == '__main__':
    main()

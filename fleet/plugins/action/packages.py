"""The controller's part of the module packages: sends what a host does not have."""
import hashlib
import os
import re
import tarfile
import tempfile

from ansible import constants
from ansible.errors import AnsibleActionFail
from ansible.plugins.action import ActionBase

LIST = 'MANIFEST'
MAX_LIST_SIZE = 64 << 10  # bytes, as zaldeploy has it
MODULE = 'flashlib.fleet.packages'


def folders(paths):
    """The packages that folders are, or hold."""
    for path in paths:
        inside = [path] + sorted(entry.path for entry in os.scandir(path) if entry.is_dir())
        found = [folder for folder in inside if os.path.isfile(os.path.join(folder, LIST))]
        if not found:
            raise AnsibleActionFail('%s holds no package: no folder with a list of files, %s.' % (path, LIST))
        yield from found


def digest(folder):
    """The SHA-256 of a package's list of files, and of its signature where it has one."""
    sha256 = hashlib.sha256()
    for name in (LIST, LIST + '.minisig'):
        path = os.path.join(folder, name)
        if os.path.exists(path):
            with open(path, 'rb') as file:
                sha256.update(file.read(MAX_LIST_SIZE))
    return sha256.hexdigest()


def archive(folder):
    """The package in one file, which is made once for all hosts of a run that get this folder."""
    name = hashlib.sha256(os.path.realpath(folder).encode()).hexdigest()
    path = os.path.join(constants.DEFAULT_LOCAL_TMP, name + '.tar')
    if not os.path.exists(path):
        descriptor, made = tempfile.mkstemp(dir=constants.DEFAULT_LOCAL_TMP)
        with os.fdopen(descriptor, 'wb') as file, tarfile.open(fileobj=file, mode='w') as files:
            for entry in sorted(os.scandir(folder), key=lambda entry: entry.name):
                if not entry.is_file(follow_symlinks=False):
                    raise AnsibleActionFail('%s is no regular file, which a package is made of.' % entry.path)
                files.add(entry.path, entry.name)
        os.rename(made, path)
    return path


class ActionModule(ActionBase):
    TRANSFERS_FILES = True

    def run(self, tmp=None, task_vars=None):
        result = super().run(tmp, task_vars)
        arguments = dict(self._task.args)
        paths = arguments.get('packages') or []
        try:
            sources = {digest(folder): folder for folder in folders([paths] if isinstance(paths, str) else paths)}
        except OSError as error:
            raise AnsibleActionFail('The packages can not be read on the controller: %s.' % error)
        names = {key: os.path.basename(os.path.abspath(folder)) for key, folder in sources.items()}
        wrong = [name for name in names.values() if not re.match(r'[A-Za-z0-9][A-Za-z0-9._+-]*$', name)]
        if wrong:
            raise AnsibleActionFail('%s is no name of a package.' % wrong[0])
        arguments['wanted'] = names
        result.update(self._execute_module(MODULE, arguments, task_vars=task_vars))
        if result.get('failed') or not result.get('missing'):
            return result
        if self._play_context.check_mode:
            return dict(result, changed=True)
        return dict(result, **self.send(sources, arguments, result['missing'], task_vars))

    def send(self, sources, arguments, missing, task_vars):
        """Sends packages, and has them unpacked."""
        folder = self._make_tmp_path()
        try:
            archives = {}
            for key in missing:
                archives[key] = self._transfer_file(archive(sources[key]),
                                                    self._connection._shell.join_path(folder, key + '.tar'))
            return self._execute_module(MODULE, dict(arguments, archives=archives), task_vars=task_vars)
        finally:
            self._remove_tmp_path(self._connection._shell.tmpdir)

"""Keeps what a run does to the firmware of each host, and writes the report of it at the end."""
import atexit
import os
import time

from ansible.parsing.dataloader import DataLoader
from ansible.plugins.callback import CallbackBase
from ansible.release import __version__
from ansible.template import Templar
from ansible_collections.flashlib.fleet.plugins.plugin_utils.run import Run
from ansible_collections.flashlib.fleet.plugins.plugin_utils import report

DOCUMENTATION = r'''
name: report
type: aggregate
short_description: Writes a report of what was done to the firmware of hosts
description:
  - Writes C(index.html), C(run.json) and C(run.csv) into a new folder, and says at the end what failed and which hosts
    were left drained.
  - Has to be named in C(callbacks_enabled).
author: FlashLib developers
options:
  folder:
    description: Folder on the controller in which each run has its own.
    type: path
    default: reports
    ini:
      - section: flashlib
        key: reports
    env:
      - name: FLASHLIB_REPORTS
'''


class CallbackModule(CallbackBase):
    CALLBACK_VERSION = 2.0
    CALLBACK_TYPE = 'aggregate'
    CALLBACK_NAME = 'flashlib.fleet.report'
    CALLBACK_NEEDS_ENABLED = True

    def __init__(self, *arguments, **options):
        super().__init__(*arguments, **options)
        self.run = None
        self.plays = []
        self.process = os.getpid()
        atexit.register(self._stopped)  # Ctrl-C ends a playbook without a word to callbacks

    def v2_playbook_on_start(self, playbook):
        self.plays = playbook.get_plays()
        name = os.path.splitext(os.path.basename(playbook._file_name))[0]
        self.run = Run(name, __version__, time.time())

    def v2_playbook_on_play_start(self, play):
        self._tell_of_hosts(play.get_variable_manager())
        self.run.begin_batch(play.get_name(), time.time())

    def _tell_of_hosts(self, manager):
        """All hosts of all plays, so that those show that were never reached."""
        for play in self.plays:
            pattern = Templar(DataLoader(), variables=manager.get_vars(play=play)).template(play.hosts)
            for host in manager._inventory.get_hosts(pattern, ignore_restrictions=True):
                self.run.add_host(host.get_name())
        self.plays = []

    def v2_runner_on_start(self, host, task):
        self.run.begin_host(host.get_name(), time.time())

    def v2_runner_on_ok(self, result):
        self._keep(result)

    def v2_runner_on_failed(self, result, ignore_errors=False):
        self._keep(result)
        if not ignore_errors:
            self.run.fail(result._host.get_name(), result._result.get('msg') or 'The task %s failed.' % result._task.name)

    def v2_runner_on_unreachable(self, result):
        self._keep(result)
        self.run.fail(result._host.get_name(), result._result.get('msg') or 'The host can not be reached.', True)

    def _keep(self, result):
        host, told, task = result._host.get_name(), result._result, result._task
        if task.resolved_action == 'flashlib.fleet.firmware':
            self.run.add_packages(host, told, task.check_mode)
        facts = told.get('ansible_facts') or {}
        if 'flashlib_drained' in facts:
            self.run.host(host)['drained'] = facts['flashlib_drained']
        if 'flashlib' in facts:
            self.run.add_inventory(host, facts['flashlib']['inventory'])
        if task.register == 'flashlib_restarted' and not told.get('failed'):
            self.run.host(host)['restarted'] = True
        self.run.end_host(host, time.time())

    def v2_playbook_on_stats(self, stats):
        failed = [host for host in stats.processed
                  if stats.summarize(host)['failures'] or stats.summarize(host)['unreachable']]
        self._write(failed)

    def _stopped(self):
        if self.run and os.getpid() == self.process:
            self._write(self.run.stop())

    def _write(self, failed):
        told, self.run = self.run.end(failed, time.time()), None
        path = report.write(told, self.get_option('folder'))
        for line in report.summary(told):
            self._display.display(line)
        self._display.display('Report: %s' % path)

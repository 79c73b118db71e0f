"""What a run of a playbook has done to the firmware of hosts, as it is told from task to task."""
import os
import time

SCHEMA = {'name': 'flashlib.fleet.run', 'number': 1}
# States of a component on a host, the worst first.
STATES = ('failed', 'refused', 'not allowed', 'waiting', 'offered', 'updated', 'current', 'not needed')
# Results of a host, the worst first.
RESULTS = ('failed', 'unreachable', 'not reached', 'offered', 'updated', 'current')

WELL = ('waiting', 'offered', 'updated', 'current')  # need no sentence

OUTCOMES = {'installed': 'updated', 'installed, restart': 'waiting', 'runs already': 'current'}
VERDICTS = {'install': 'offered', 'newer': 'current', 'stopped': 'failed', 'superseded': 'current'}


def utc(seconds):
    return time.strftime('%Y-%m-%dT%H:%M:%SZ', time.gmtime(seconds))


def state_of(package):
    """The state that a package's result tells of."""
    if 'outcome' in package:
        return OUTCOMES.get(package['outcome']['result'], 'failed')
    return VERDICTS.get(package['verdict'], package['verdict'])


class Run:
    """Begins with nothing but a name; end() gives all that is known, as JSON can hold it."""

    def __init__(self, playbook, ansible, now):
        self._playbook, self._ansible, self._started = playbook, ansible, now
        self._batches, self._hosts = [], {}

    def host(self, name):
        """What is known of a host; it may be changed."""
        return self._hosts[name]

    def add_host(self, name):
        self._hosts.setdefault(name, {
            'name': name, 'product': None, 'serial': None, 'batch': None, 'result': 'not reached', 'message': '',
            'restarted': False, 'drained': False, 'started': None, 'seconds': 0, 'components': {},
            'changed': False, 'unreachable': False})

    def begin_batch(self, name, now):
        self._end_batch(now)
        self._batches.append({'name': name, 'started': now, 'seconds': 0, 'hosts': []})

    def _end_batch(self, now):
        if self._batches:
            self._batches[-1]['seconds'] = round(now - self._batches[-1]['started'], 1)

    def begin_host(self, name, now):
        self.add_host(name)
        host = self._hosts[name]
        if host['batch'] is None:
            host.update(batch=len(self._batches) - 1, started=now)
            self._batches[-1]['hosts'].append(name)

    def end_host(self, name, now):
        self._hosts[name]['seconds'] = round(now - self._hosts[name]['started'], 1)

    def fail(self, name, message, unreachable=False):
        """The last failure is the one that counts: a role may have gone on."""
        host = self._hosts[name]
        host['message'], host['unreachable'] = message.strip(), host['unreachable'] or unreachable

    def stop(self):
        """The run was stopped: it is not known how far the servers of the last batch are. Returns those that failed."""
        for name in self._batches[-1]['hosts'] if self._batches else []:
            if not self._hosts[name]['message']:
                self.fail(name, 'The run was stopped in the middle of this batch. Run it again.')
        return [name for name, host in self._hosts.items() if host['message']]

    def add_packages(self, name, told, check):
        """What the module firmware has told of a host."""
        host = self._hosts[name]
        for member in ('product', 'serial'):
            host[member] = told.get(member) or host[member]
        host['changed'] = host['changed'] or bool(told.get('changed') and not check)
        for package in told.get('packages', []):
            self._add_component(host, package)

    def _add_component(self, host, package):
        key = os.path.basename(package['package'])
        outcome = package.get('outcome', {})
        known = host['components'].get(key)
        state = state_of(package)
        if known and known['state'] in ('updated', 'waiting') and state == 'current':
            state = 'updated'
        if known and known['state'] == 'waiting' and state == 'offered':
            state = 'failed'  # the restart has not brought it
        host['components'][key] = {
            'component': package['component'], 'device': package['device'],
            'from': known['from'] if known else package['current'],
            'to': outcome.get('now', package['current']), 'offered': package['offered'], 'state': state,
            'message': '' if state in WELL else outcome.get('message') or package['why'],
            'left': outcome.get('left'), 'manifest': package.get('manifest')}

    def add_inventory(self, name, inventory):
        """What a host is made of: a component for each part that has a version."""
        host = self._hosts[name]
        host.update(product=inventory['product'], serial=inventory['serial'])
        kinds = {'system_rom': 'System ROM', 'processor': 'Management processor'}
        for kind, entry in inventory['parts'].items():
            for part in entry if isinstance(entry, list) else [entry]:
                if part and (part['version'] or part.get('problem')) and kind != 'product':
                    key = kinds.get(kind, part['name'])
                    host['components'][key] = {
                        'component': key, 'device': part['name'], 'from': part['version'], 'to': part['version'],
                        'offered': '', 'state': 'failed' if part.get('problem') else 'current',
                        'message': part.get('problem', ''), 'left': None}

    def end(self, failed, now):
        """The whole run. Hosts that Ansible counts as failed are given."""
        self._end_batch(now)
        for name, host in self._hosts.items():
            unreachable, changed = host.pop('unreachable'), host.pop('changed')
            states = [component['state'] for component in host['components'].values()]
            if name in failed:
                host['result'] = 'unreachable' if unreachable else 'failed'
            elif states:
                host['message'] = ''
                changed = changed or 'updated' in states  # by an earlier run, whose restart this one has made
                host['result'] = 'offered' if 'offered' in states else 'updated' if changed else 'current'
            host['started'] = host['started'] and utc(host['started'])
        hosts = list(self._hosts.values())
        return {
            'schema': SCHEMA, 'playbook': self._playbook, 'ansible': self._ansible,
            'started': utc(self._started), 'seconds': round(now - self._started, 1),
            'counts': {result: sum(host['result'] == result for host in hosts) for result in RESULTS},
            'drained': [host['name'] for host in hosts if host['drained']],
            'batches': [dict(batch, started=utc(batch['started']),
                             begin=round(batch['started'] - self._started, 1)) for batch in self._batches],
            'hosts': hosts}

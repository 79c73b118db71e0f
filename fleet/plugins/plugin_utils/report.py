"""Writes the report of a run: JSON, CSV, and a page that needs nothing but itself."""
import collections
import csv
import json
import os

from ansible_collections.flashlib.fleet.plugins.plugin_utils import page

COLUMNS = ('component', 'device', 'from', 'to', 'offered', 'state', 'message')


def failures(run):
    """Hosts by the sentence that tells what is wrong with them, the most frequent first."""
    found = collections.defaultdict(list)
    for host in run['hosts']:
        if host['result'] in ('failed', 'unreachable'):
            found[host['message']].append(host)
    return dict(sorted(found.items(), key=lambda item: -len(item[1])))


def counted(run):
    """How many hosts ended how, in words."""
    return ', '.join('%d %s' % (count, result) for result, count in run['counts'].items() if count) or 'no servers'


def summary(run):
    """What is told on the terminal at the end."""
    yield 'Servers: %s.' % counted(run)
    for message, hosts in failures(run).items():
        yield '%s: %s' % (', '.join(host['name'] for host in hosts), message)
    if run['drained']:
        yield 'Left drained: %s.' % ', '.join(run['drained'])


def write_csv(run, path):
    with open(path, 'w', newline='', encoding='utf-8') as file:
        lines = csv.writer(file)
        lines.writerow(('host', 'batch', 'result', 'product', 'serial', 'seconds') + COLUMNS)
        for host in run['hosts']:
            batch = '' if host['batch'] is None else host['batch'] + 1
            about = [host['name'], batch, host['result'], host['product'], host['serial'], host['seconds']]
            for component in list(host['components'].values()) or [{'message': host['message']}]:
                lines.writerow(about + [component.get(column, '') for column in COLUMNS])


def new_folder(folder, name):
    """A folder for a run; two may begin in the same second."""
    number = 1
    while True:
        path = os.path.join(folder, name if number == 1 else '%s-%d' % (name, number))
        try:
            os.makedirs(path)
            return os.path.abspath(path)
        except FileExistsError:
            number += 1


def write(run, folder):
    """Writes all three into a new folder; returns the path of the page."""
    path = new_folder(folder, '%s-%s' % (run['started'].replace(':', ''), run['playbook']))
    with open(os.path.join(path, 'run.json'), 'w', encoding='utf-8') as file:
        json.dump(run, file, indent=1)
        file.write('\n')
    write_csv(run, os.path.join(path, 'run.csv'))
    with open(os.path.join(path, 'index.html'), 'w', encoding='utf-8') as file:
        file.write(page.page(run, failures(run)))
    return os.path.join(path, 'index.html')

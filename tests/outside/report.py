#!/usr/bin/env python3
"""Opens the report of the rack that fleet.sh has brought up to date in Chromium, and one of 1,000 servers made of it:
what the page shows is what the run has told, it filters and sorts, complains of nothing, and asks for nothing from outside.
Argument: the build folder, in whose fleet/ the rack and the pictures of the page are."""
import base64
import copy
import glob
import json
import os
import shutil
import subprocess
import sys
import tempfile

RACK = os.path.join(os.path.abspath(sys.argv[1]), 'fleet')
sys.path.insert(0, os.path.join(RACK, 'collections'))


class Browser:
    """Chromium, talked to through two pipes, which it has as descriptors 3 and 4."""

    def __init__(self):
        self.home = tempfile.TemporaryDirectory()
        asked, self.ask = os.pipe()
        self.told, tell = os.pipe()
        program = ['chromium', '--headless', '--no-sandbox', '--disable-gpu', '--remote-debugging-pipe',
                   '--user-data-dir=' + self.home.name, 'about:blank']
        self.process = subprocess.Popen(['sh', '-c', 'exec "$@" 3<&%d 4>&%d' % (asked, tell), 'sh'] + program,
                                        pass_fds=(asked, tell), stderr=subprocess.DEVNULL)
        os.close(asked)
        os.close(tell)
        self.number, self.rest, self.events, self.session = 0, b'', [], None
        self.open()

    def read(self):
        while b'\0' not in self.rest:
            more = os.read(self.told, 1 << 16)
            assert more, 'Chromium has ended'
            self.rest += more
        line, self.rest = self.rest.split(b'\0', 1)
        return json.loads(line)

    def call(self, method, **params):
        self.number += 1
        message = {'id': self.number, 'method': method, 'params': params}
        if self.session:
            message['sessionId'] = self.session
        os.write(self.ask, json.dumps(message).encode() + b'\0')
        while True:
            answer = self.read()
            if answer.get('id') == self.number:
                assert 'error' not in answer, answer
                return answer['result']
            self.events.append(answer)

    def wait(self, method):
        while not any(event['method'] == method for event in self.events):
            self.events.append(self.read())

    def open(self):
        """Opens a page, and listens to all that it does."""
        target = self.call('Target.createTarget', url='about:blank')['targetId']
        self.session = self.call('Target.attachToTarget', targetId=target, flatten=True)['sessionId']
        for domain in ('Page', 'Runtime', 'Log', 'Network', 'Accessibility'):
            self.call(domain + '.enable')

    def end(self):
        self.session = None
        self.call('Browser.close')
        self.process.wait(30)

    def value(self, expression):
        result = self.call('Runtime.evaluate', expression=expression, returnByValue=True)
        assert 'exceptionDetails' not in result, result
        return result['result'].get('value')


def same(what, found, expected):
    assert found == expected, '%s: %r, not %r' % (what, found, expected)


def shown(browser):
    return browser.value('[...document.querySelectorAll("#matrix tbody tr")].filter(r => !r.hidden)'
                         '.map(r => r.cells[0].textContent)')


def click(browser, title):
    browser.value('[...document.querySelectorAll("#matrix thead button")].find(b => b.textContent == "%s").click()' % title)


def check_numbers(browser, run):
    """What is shown at first."""
    wrong = [host for host in run['hosts'] if host['result'] in ('failed', 'unreachable')]
    same('servers', shown(browser), [host['name'] for host in run['hosts']])
    same('results', browser.value('Object.fromEntries([...document.querySelectorAll(".filters button")].map(b => '
                                  '[b.dataset.result, +b.querySelector("b").textContent.replaceAll(",", "")]))'),
         {result: count for result, count in run['counts'].items() if count})
    same('servers of batches', browser.value('[...document.querySelectorAll(".batches tbody tr")].map(r => '
                                             '+r.cells[2].textContent)'), [len(b['hosts']) for b in run['batches']])
    for state in ('updated', 'failed', 'refused'):
        same(state, browser.value('document.querySelectorAll("#matrix .is-%s:not(.result)").length' % state),
             sum(c['state'] == state for host in run['hosts'] for c in host['components'].values()))
    same('failures', browser.value('[...document.querySelectorAll(".failures tbody .count")].reduce((n, c) => '
                                   'n + +c.textContent.replaceAll(",", ""), 0)'), len(wrong))
    same('sentences', browser.value('[...document.querySelectorAll("#matrix .message")].map(p => p.textContent)'),
         [host['message'] for host in wrong])


def check_filter(browser, run):
    names = [host['name'] for host in run['hosts']]
    failed = [host['name'] for host in run['hosts'] if host['result'] == 'failed']
    browser.value('document.querySelector("[data-result=failed]").click()')
    same('after a click on "failed"', shown(browser), failed)
    browser.value('filter.value = "%s"; filter.dispatchEvent(new Event("input"))' % failed[0].upper())
    same('with a name in the filter', shown(browser), failed[:1])
    same('what is told of that', browser.value('document.getElementById("shown").value'),
         '1 of {:,} servers'.format(len(names)))
    browser.value('filter.value = ""; document.querySelector("[data-result=failed]").click()')
    same('without a filter', shown(browser), names)


def check_order(browser, run):
    names = sorted(host['name'] for host in run['hosts'])
    failed = sorted(host['name'] for host in run['hosts'] if host['result'] == 'failed')
    click(browser, 'Server')
    click(browser, 'Server')
    same('sorted by name, the last first', shown(browser), names[::-1])
    click(browser, 'Result')
    same('sorted by result, the worst first', sorted(shown(browser)[:len(failed)]), failed)
    same('the head that tells of the order', browser.value('document.querySelector("[aria-sort=ascending]").textContent'),
         'Result')
    click(browser, 'Server')
    same('sorted by name', shown(browser), names)


def check_names(browser, run):
    """What a screen reader gets."""
    nodes = [(node['role']['value'], node.get('name', {}).get('value'))
             for node in browser.call('Accessibility.getFullAXTree')['nodes'] if not node['ignored']]
    names = [host['name'] for host in run['hosts']]
    same('heads of rows', [name for role, name in nodes if role == 'rowheader' and name in set(names)], names)
    same('what has no name', [role for role, name in nodes if role in ('button', 'link', 'searchbox') and not name], [])


def take_pictures(browser, name):
    for width in (1440, 900, 480):
        browser.call('Emulation.setDeviceMetricsOverride', width=width, height=1400, deviceScaleFactor=1, mobile=False)
        same('what fits into %d' % width, browser.value('document.documentElement.scrollWidth <= innerWidth'), True)
        with open(os.path.join(RACK, '%s-%d.png' % (name, width)), 'wb') as file:
            file.write(base64.b64decode(browser.call('Page.captureScreenshot')['data']))


def check(browser, folder, name):
    """A page, and what the run beside it tells."""
    with open(os.path.join(folder, 'run.json'), encoding='utf-8') as file:
        run = json.load(file)
    page = 'file://' + os.path.join(folder, 'index.html')
    browser.events.clear()
    browser.call('Page.navigate', url=page)
    browser.wait('Page.loadEventFired')
    for look in (check_numbers, check_filter, check_order, check_names):
        look(browser, run)
    take_pictures(browser, name)
    asked = [event['params']['request']['url'] for event in browser.events if event['method'] == 'Network.requestWillBeSent']
    same('what the page asks for', [url for url in asked if url != page and not url.startswith('data:')], [])
    same('complaints', [event for event in browser.events if event['method'] in (
        'Log.entryAdded', 'Runtime.exceptionThrown', 'Runtime.consoleAPICalled')], [])


def many(folder):
    """The report of 1,000 servers, each of which is one of the run's."""
    from ansible_collections.flashlib.fleet.plugins.plugin_utils import report
    with open(os.path.join(folder, 'run.json'), encoding='utf-8') as file:
        run = json.load(file)
    hosts = run['hosts']
    run['hosts'] = [dict(copy.deepcopy(hosts[n % len(hosts)]), name='server%04d' % n) for n in range(1000)]
    run['counts'] = {result: 1000 // len(hosts) * count for result, count in run['counts'].items()}
    for index, batch in enumerate(run['batches']):
        batch['hosts'] = [host['name'] for host in run['hosts'] if host['batch'] == index]
    return os.path.dirname(report.write(run, os.path.join(RACK, 'many')))


def main():
    if not shutil.which('chromium'):
        print('skipped: there is no Chromium; script/bootstrap installs it')
        return 77
    runs = glob.glob(os.path.join(RACK, 'first', '*'))
    if not runs:
        print('skipped: there is no report, as there is no Ansible; script/bootstrap installs it')
        return 77
    browser = Browser()
    check(browser, runs[0], 'report')
    check(browser, many(runs[0]), 'report-1000')
    browser.end()
    return 0


sys.exit(main())

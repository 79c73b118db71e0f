"""The page of a report: all that is known of a run in one file, which asks for nothing from anywhere."""
import html
import os

from ansible_collections.flashlib.fleet.plugins.plugin_utils.run import RESULTS, STATES

# A sign for each, so that colour is not all that tells them apart.
SIGNS = {'failed': '✕', 'refused': '⊘', 'not allowed': '!', 'waiting': '↻', 'offered': '○', 'updated': '↑',
         'current': '=', 'not needed': '–', 'unreachable': '?', 'not reached': '…'}
TITLES = {'update': 'Firmware update', 'plan': 'Firmware plan', 'restore': 'Firmware restored',
          'inventory': 'Firmware inventory'}
HAPPENED = {'update': 'up to date', 'plan': 'up to date', 'restore': 'as asked for', 'inventory': 'read'}


def text(value):
    return html.escape('' if value is None else str(value))


def resource(name):
    """A file of the page's own: its style, its script."""
    folder = os.path.join(os.path.dirname(__file__), '..', '..', 'report')
    with open(os.path.join(folder, name), encoding='utf-8') as file:
        return file.read()


def css(word):
    """The class of a state or result."""
    return 'is-' + word.replace(' ', '-')


def sign(word):
    return '<span class="sign" aria-hidden="true">%s</span>' % SIGNS[word]


def duration(seconds):
    """"42 s", "3 min 05 s", "2 h 07 min"."""
    seconds = int(seconds + 0.5)
    if seconds < 60:
        return '%d s' % seconds
    if seconds < 3600:
        return '%d min %02d s' % divmod(seconds, 60)
    return '%d h %02d min' % divmod(seconds // 60, 60)


def number(count, word):
    return '%s %s%s' % (format(count, ','), word, '' if count == 1 else 's')


def head(run):
    """The title, and in one sentence how it ended."""
    counts, total = run['counts'], len(run['hosts'])
    good = counts['updated'] + counts['current']
    rest = ['<b>%s</b> %s' % (format(counts[result], ','), result)
            for result in ('failed', 'unreachable', 'not reached', 'offered') if counts[result]]
    return '''<header>
<h1>%s</h1>
<p class="lead"><b>%s</b> of %s %s%s.</p>
<p class="meta"><time datetime="%s">%s UTC</time> · %s · %s · <a href="run.json">JSON</a> · <a href="run.csv">CSV</a></p>
</header>''' % (text(TITLES.get(run['playbook'], run['playbook'])), format(good, ','), number(total, 'server'),
                HAPPENED.get(run['playbook'], 'well'), '; ' + ', '.join(rest) if rest else '',
                text(run['started']), text(run['started'][:16].replace('T', ' ')), duration(run['seconds']),
                number(len(run['batches']), 'batch').replace('batchs', 'batches'))


def filters(run):
    """How many servers ended how: a bar, and a button for each that shows these alone."""
    counts = [(result, run['counts'][result]) for result in RESULTS if run['counts'][result]]
    bar = ''.join('<span class="%s" style="flex-grow:%d"></span>' % (css(result), count) for result, count in counts)
    buttons = ''.join(
        '<button type="button" class="%s" data-result="%s" aria-pressed="false">%s<b>%s</b> %s</button>' %
        (css(result), result, sign(result), format(count, ','), result) for result, count in counts)
    return '<div class="bar" aria-hidden="true">%s</div>\n<div class="filters" role="group" aria-label="Show servers ' \
           'by result">%s</div>' % (bar, buttons)


def link(host):
    return '<a href="#%s">%s</a>' % (host['id'], text(host['name']))


def failed(failures):
    """What failed: each sentence once, with its servers."""
    if not failures:
        return ''
    rows = ''.join('<tr><td class="count">%s</td><td>%s<p class="names">%s</p></td></tr>\n' % (
        format(len(hosts), ','), text(message), ' '.join(map(link, hosts))) for message, hosts in failures.items())
    return '''<section aria-labelledby="failed"><h2 id="failed">What failed</h2>
<table class="failures"><thead><tr><th scope="col" class="count">Servers</th><th scope="col">What happened, what to do, and
where</th></tr></thead><tbody>
%s</tbody></table></section>''' % rows


def drained(run, hosts):
    if not run['drained']:
        return ''
    return '<section class="notice" aria-labelledby="drained"><h2 id="drained">Left drained</h2><p>These take no load ' \
           'until they are resumed: %s</p></section>' % ' '.join(link(hosts[name]) for name in run['drained'])


def batch_row(run, batch, number_of, hosts):
    """A batch: its numbers, where it stands in time, and a square for each server."""
    share = 100 / max(run['seconds'], 0.1)
    members = [hosts[name] for name in batch['hosts']]
    bad = sum(host['result'] in ('failed', 'unreachable') for host in members)
    squares = ''.join('<a href="#%s" class="%s" title="%s: %s" tabindex="-1"></a>' % (
        host['id'], css(host['result']), text(host['name']), host['result']) for host in members)
    return '''<tr><th scope="row">%d</th><td>%s</td><td class="count">%d</td><td class="count%s">%s</td>
<td class="count">%s</td><td class="when"><div class="track" aria-hidden="true"><span style="left:%.2f%%;width:%.2f%%"></span></div>
<div class="squares" aria-hidden="true">%s</div></td></tr>
''' % (number_of, text(batch['name']), len(members), ' is-failed' if bad else '', bad or '–', duration(batch['seconds']),
       batch['begin'] * share, max(batch['seconds'] * share, 0.4), squares)


def batches(run, hosts):
    """The time line."""
    rows = ''.join(batch_row(run, batch, index, hosts) for index, batch in enumerate(run['batches'], 1))
    return '''<section aria-labelledby="batches"><h2 id="batches">Batches</h2>
<table class="batches"><thead><tr><th scope="col">No.</th><th scope="col">Play</th><th scope="col" class="count">Servers</th>
<th scope="col" class="count">Failed</th><th scope="col" class="count">Took</th><th scope="col" class="when">
<span>0 s</span><span>%s</span></th></tr></thead><tbody>
%s</tbody></table></section>''' % (duration(run['seconds']), rows)


def cell(component):
    """What came of a component on a host."""
    if not component:
        return '<td class="none" data-sort="9"><span class="sr">not offered</span></td>'
    state, before, after = component['state'], component['from'], component['to']
    target = component['offered'] if state in ('offered', 'waiting', 'failed') else after
    steps = before if before == target or not target else '%s → %s' % (before or 'none', target)
    if state == 'failed' and after != before:
        steps = '%s → %s' % (before, after)
    label = '' if state in ('updated', 'current') else '<span class="state">%s</span> ' % state
    hidden = '<span class="sr">%s: </span>' % state if not label else ''
    if state in ('not needed', 'refused', 'not allowed'):
        steps = ''
    return '<td class="%s" data-sort="%d"%s>%s%s%s%s</td>' % (
        css(state), STATES.index(state), ' title="%s"' % text(component['message']) if component['message'] else '',
        sign(state), hidden, label, text(steps))


def row(host, columns):
    message = '<p class="message">%s</p>' % text(host['message']) if host['message'] else ''
    marks = ''.join('<span class="mark">%s</span>' % mark for mark in ('restarted', 'drained') if host[mark])
    return '''<tr id="%s" data-result="%s"><th scope="row">%s</th><td class="product">%s</td><td class="count">%s</td>
<td class="result %s" data-sort="%d">%s%s%s%s</td>%s<td class="count" data-sort="%s">%s</td></tr>
''' % (host['id'], host['result'], text(host['name']),
       text(' · '.join(filter(None, (host['product'], host['serial'])))),
       '' if host['batch'] is None else host['batch'] + 1, css(host['result']), RESULTS.index(host['result']),
       sign(host['result']), host['result'], marks, message,
       ''.join(cell(host['components'].get(column)) for column in columns), host['seconds'],
       '' if host['batch'] is None else duration(host['seconds']))


def titles(run):
    """The columns: keys of components and what they are called."""
    found = {}
    for host in run['hosts']:
        for key, component in host['components'].items():
            if found.get(key, key) == key:
                found[key] = component['component']
    return dict(sorted(found.items()))


def heading(title):
    kind = {'Batch': 'count', 'Took': 'count', 'Product': 'product'}.get(title, '')
    return '<th scope="col" aria-sort="none" class="%s"><button type="button">%s</button></th>' % (kind, text(title))


def servers(run):
    """The matrix of servers and components."""
    columns = titles(run)
    heads = ''.join(map(heading, ['Server', 'Product', 'Batch', 'Result'] + list(columns.values()) + ['Took']))
    legend = ''.join('<li class="%s">%s%s</li>' % (css(state), sign(state), state) for state in STATES)
    rows = ''.join(row(host, columns) for host in run['hosts'])
    return '''<section aria-labelledby="servers"><h2 id="servers">Servers</h2>
<div class="tools">%s
<label>Filter <input type="search" id="filter" placeholder="name, version, sentence" autocomplete="off"></label>
<output id="shown" aria-live="polite">%s</output></div>
<div class="scroll" tabindex="0" role="region" aria-label="Servers and components"><table class="servers" id="matrix">
<thead><tr>%s</tr></thead><tbody>
%s</tbody></table></div>
<ul class="legend" aria-label="Signs">%s</ul></section>''' % (
        filters(run), number(len(run['hosts']), 'server'), heads, rows, legend)


def page(run, failures):
    """The whole page."""
    for index, host in enumerate(run['hosts']):
        host['id'] = 'h%d' % index
    hosts = {host['name']: host for host in run['hosts']}
    return '''<!doctype html>
<html lang="en">
<head>
<meta charset="utf-8">
<meta name="viewport" content="width=device-width, initial-scale=1">
<meta http-equiv="Content-Security-Policy"
 content="default-src 'none'; img-src data:; style-src 'unsafe-inline'; script-src 'unsafe-inline'">
<link rel="icon" href="data:,">
<title>%s, %s</title>
<style>
%s</style>
</head>
<body>
<main>
%s
</main>
<script>
%s</script>
</body>
</html>
''' % (text(TITLES.get(run['playbook'], run['playbook'])), text(run['started']), resource('page.css'),
       '\n'.join((head(run), failed(failures), drained(run, hosts), batches(run, hosts), servers(run))),
       resource('page.js'))

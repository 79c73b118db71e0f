#!/bin/sh
# Brings a rack of 20 simulated servers up to date with Ansible, four of which have a fault: each ends as it should,
# nothing is lost, and once more changes nothing. Argument: the build folder, in whose fleet/ the rack stays.
set -eu
build=$1
command -v ansible-playbook >/dev/null || { echo "skipped: there is no Ansible; script/bootstrap installs it"; exit 77; }
source=$(cd "$(dirname "$0")/../.." && pwd)
rack=$build/fleet
rm -rf "$rack"
export FLASHLIB_BUILD="$build" ANSIBLE_CONFIG="$rack/ansible.cfg" ANSIBLE_HOME="$rack/home" ANSIBLE_NOCOLOR=1
fail() { tail -n 100 "$rack/output" | cut -c -300 >&2; echo "$*" >&2; exit 1; }

"$source/script/rack" --canaries 2 20 "$rack"
cd "$rack"
for name in firmware firmware_info packages; do
    ansible-doc "flashlib.fleet.$name" >output 2>&1 || fail "ansible-doc does not know $name"
done
ansible-doc -t role flashlib.fleet.firmware >output 2>&1 && grep -q flashlib_drain output || fail "the role is not documented"

# Runs the update, which must end with a status, into a folder of reports: NAME STATUS.
update() {
    status=0
    FLASHLIB_REPORTS="$1" ansible-playbook flashlib.fleet.update -e flashlib_serial=18 \
        -e flashlib_max_fail_percentage=25 >output 2>&1 </dev/null || status=$?
    [ "$status" = "$2" ] || fail "$1: the update ended with status $status"
}

# Prints the servers of a run by result, with the beginning of their messages, and those whose firmware was changed.
told() {
    python3 - "$1"/*/run.json <<'END'
import json, sys
run = json.load(open(sys.argv[1]))
for host in run['hosts']:
    if host['result'] == 'failed':
        print(host['name'], host['message'][:60])
states = [(host['name'], component['state']) for host in run['hosts'] for component in host['components'].values()]
print('changed', len({name for name, state in states if state == 'updated'}))
print('waiting', sorted({name for name, state in states if state in ('offered', 'waiting')}))
END
}
same() { [ "$2" = "$3" ] || fail "$1: $2
but expected was: $3"; }

left=servers/node0001/var/lib/flashlib/packages/.new.left  # by a copy that was killed: it is to be gone below
mkdir -p "$left" && touch -d '2 days ago' "$left"
update first 2
same "the first update" "$(told first)" "node0003 Quorvant System ROM - P70: The installer crashed (Killed). T
node0006 Quorvant System ROM - P70: CRU driver is not loaded or is no
node0012 devicefw: The package holds another tamberline_1.3.2.fw than
node0015 The host has not answered within 15 s.
changed 17
waiting ['node0012']"
[ "$(find servers/*/var/lib/flashlib/packages -mindepth 1 -maxdepth 1 | wc -l)" = 57 ] || fail "19 hosts have not three packages"

# The power is back: that server alone is finished, and nothing is done to the others.
python3 - <<'END'
import json
path = 'servers/node0003/server.json'
server = json.load(open(path))
del server['faults']
json.dump(server, open(path, 'w'))
END
others() { find servers -name journal.log ! -path '*/node0003/*' | sort | xargs cat; }
done_before=$(others)
update second 2
same "the second update" "$(told second | grep -E 'node0003|changed')" "changed 1"
[ "$(others)" = "$done_before" ] || fail "the second update has done something to servers that were done"
"$build/sim/zalsim" --server servers/node0003 --describe | grep -q 'P70 v2.40' || fail "the server is not recovered"

#!/bin/sh
# Captures runs on simulated servers, has tshark decode them, and looks for what it must and must not find. Argument: the
# build folder.
set -eu
build=$1
command -v tshark >/dev/null || exit 77
source=$(cd "$(dirname "$0")/../.." && pwd)
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
export HOME="$work" QVFLASHLOG="$work/log" PATH="$build/sim:$build/tools:$PATH" LC_ALL=C.UTF-8
fail() { echo "$*" >&2; exit 1; }

# Runs a component's installer on a server of its own: NAME CAPTURE COMPONENT OPTIONS.
run() {
    server=$work/$1
    capture=$work/$2.pcapng
    package=$build/packages/$3
    installer=$package/$3
    shift 3
    mkdir "$server"
    cp "$source/sim/servers/rack/server.json" "$server"
    zalsim --server "$server" --capture "$capture" "$@" -- "$installer" /y "$package" >"$server/output" 2>&1
}

# The frames of a capture that a filter finds: NAME FILTER, and what to print of them. What tshark complains of, and what
# it can't decode, is a failure.
frames() {
    capture=$1
    filter=$2
    shift 2
    tshark -2 -X "lua_script:$build/wireshark/flashlib.lua" -r "$work/$capture.pcapng" -Y "$filter" -T fields \
        -e "${1:-_ws.col.Info}" 2>"$work/complaints" || fail "tshark can't read $capture: $(cat "$work/complaints")"
    ! grep -v '^Running as user' "$work/complaints" >&2 || fail "tshark complains of $capture"
}
none() { found=$(frames "$1" "$2"); [ -z "$found" ] || fail "$1: $2: $found"; }
same() { [ "$2" = "$3" ] || fail "$1 is $2, not $3"; }

# No frame is a puzzle: each is decoded to its last byte, and each reply has its request.
understand() {
    none "$1" '_ws.malformed || _ws.lua.error || smif.data || !zalsim'
    none "$1" '(zalsim.direction == 2 || ipmi.trace.dir == 0) && !zalsim.request_in && smif.channel_status != 21 &&
        !(flashtable.operation in {1, 2, 3})'
}

for name in systemrom devicefw powercontroller; do
    run $name $name $name || [ $? = 1 ] || fail "$name: $(cat "$work/$name/output")"  # 1: restart
    understand $name
    none $name '(zalsim.direction == 1 && !(flashtable.operation in {0, 4, 6}) || ipmi.trace.dir == 1) && !zalsim.response_in'
    none $name '_ws.expert.severity >= 0x600000 && !(_ws.expert.message contains "cknowledge") && !(_ws.expert.group == 0x05000000)'
    same "$name: the processor's version" "$(frames $name smif.reply.get_status.fwversionminor smif.reply.get_status.fwversionminor | uniq)" 14
    same "$name: what it logs" "$(frames $name vrl.text vrl.text)" "$(zalsim --server "$work/$name" --show-log | sed -n '2s/.*info *//p')"
done
same "bytes uploaded" "$(frames devicefw smif.request.device_flash.operation==3 smif.request.device_flash.datalength |
    awk '{ sum += $1 } END { print sum }')" "$(wc -c <"$build/packages/devicefw/tamberline_1.3.2.fw")"
same "records programmed" "$(frames powercontroller 'zali2c && powerctl.type in {0, 4}' | wc -l)" \
    "$(grep -c '^:......0[04]' "$build/packages/powercontroller/zephyra_2.1.hex")"
same "the tables run" "$(frames systemrom 'zalsim.direction == 1 && flashtable' flashtable.table_exec_request.tablenumber |
    grep . | tr '\n' ' ')" "0 1 2 3 1 4 "

# The page shows what is printed.
page=$source/docs/protocol.md
awk '/-O smif/ { shown = 1; next } shown && /^[^ ]/ { exit } shown && /./ { print substr($0, 5) }' "$page" >"$work/page"
tshark -2 -X "lua_script:$build/wireshark/flashlib.lua" -r "$work/devicefw.pcapng" -O smif -Y 'smif.sequence == 3' \
    2>/dev/null | grep . | diff "$work/page" - || fail "$page shows something else"

# A fault is told of the frames that it hits, and what is wrong there as expert information.
while read -r component fault value information; do
    run "$fault" "$fault" "$component" --fault "$fault=$value" || true
    frames "$fault" zalsim.fault zalsim.fault | grep -xF "$fault" >/dev/null || fail "$fault: no frame has it"
    frames "$fault" _ws.expert _ws.expert.message | grep -F "$information" >/dev/null || fail "$fault: it does not say $information"
done <<END
devicefw processor.lost DEVICE_FLASH Nothing came in time
devicefw processor.stale 3 The request was answered before
devicefw processor.runt 2 Length says 24 bytes, there are 10
devicefw processor.power_lost_at_byte 30000 No reply came
powercontroller processor.i2c.power_controller.bad_checksum 5 Wrong checksum
powercontroller processor.i2c.power_controller.busy_at_record 3 Programming is in progress
systemrom flash.fails_at_table 3 Status is FlashStatus_DeviceError
systemrom ipmi.silent true Nothing came that could be received
END

# What has no frames of its own.
same "channels" "$(frames devicefw zaljournal zaljournal.line | grep -c '^channel')" 2
run unread unread systemrom --fault smbios=truncated || true
same "readings" "$(frames unread 'zalsim.fault == "smbios=truncated"' zaljournal.line | sort -u | head -n 1)" "smbios read bytes=31"

# Frames that were cut and damaged make it fail nowhere.
editcap --seed 1 -E 0.01 "$work/powercontroller.pcapng" "$work/damaged.pcapng"
editcap -s 40 "$work/damaged.pcapng" "$work/cut.pcapng"
for name in damaged cut; do none $name _ws.lua.error; done

# Several installers add to one file, and one of them is killed.
for name in systemrom devicefw powercontroller; do run "$name-too" together $name & done
run cut together devicefw --fault processor.dies_at_byte=100000 &
wait
same "the processes" "$(frames together 'zalsim.process' zalsim.process | sort -u | wc -l)" 4
none together '_ws.malformed || _ws.lua.error'

# All twelve commands, in whatever the tests of the simulated processor do.
ZALSIM_CAPTURE=$work/commands.pcapng "$build/tests/processor_tests" --gtest_filter='Processor.*-*.TakesALargeImage*' >"$work/output" ||
    fail "$(cat "$work/output")"
none commands '_ws.malformed || _ws.lua.error'
for direction in 1 2; do
    same "the commands" "$(frames commands "zalsim.direction == $direction" smif.command | sort -u | grep -c .)" 12
done

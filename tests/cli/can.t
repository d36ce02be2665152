    $ quorvel() { command quorvel -g "$GATEWAY" "$@"; }
    $ listen() { exec {out}< <(exec quorvel -g "$GATEWAY" "$@" 2>&1); listener=$!; until [[ ${line-} == Listening* ]]; do read -r -t 10 line <&"$out" || break; done; line=; }
    $ finish() { cat <&"$out"; wait "$listener"; }

Settings; what is not given stays:

    $ quorvel can config --bit-rate 250000 --time-stamps on --high-speed off
    bit rate     250000
    mode         normal
    termination  off
    high speed   off
    time stamps  on
    confirm      off
    CANopen      off
    $ quorvel --json can config --termination on --mode loop-back
    {"bit_rate":250000,"mode":"loop-back","termination":true,"high_speed":false,"time_stamps":true,"confirm":false,"canopen":false}
    $ quorvel can config --bit-rate 12345
    quorvel: CAN gateway 127.90.3.1:5001: change the settings: 0x00000224, CAN no valid baudrate
    [1]
    $ quorvel can config --mode deaf 2>&1 | head -1
    quorvel: --mode: 'deaf' is none of listen, loop-back, normal
    $ quorvel --json can config --mode normal --time-stamps off --confirm on | grep -o '"confirm":.*'
    "confirm":true,"canopen":false}

A frame that one sends, another sees; both are told so by the gateway:

    $ listen can dump -n 1 -T 5000
    $ quorvel can send 123#11.22.33
    $ finish
      can0  123   [3]  11 22 33
    $ listen can dump -n 5 -x -a -8
    $ quorvel --json can send can0 123#4142 123# 12345678#1122334455667788 7FF#R 0AB#00
    {"frame":"123#4142"}
    {"frame":"123#"}
    {"frame":"12345678#1122334455667788"}
    {"frame":"7FF#R"}
    {"frame":"0AB#00"}
    $ finish
      can0  RX - -  123   {2}  41 42                     'AB'
      can0  RX - -  123   {0}                            ''
      can0  RX - -  12345678   {8}  11 22 33 44 55 66 77 88   '."3DUfw.'
      can0  RX - -       7FF   {0}  remote request
      can0  RX - -       0AB   {1}  00                        '.'
    $ listen --json can dump -n 2 can0,12345678:DFFFFFFF,7FF:7FF
    $ quorvel can send --count 2 123#11 12345678#AA 7FF#R
    $ finish > seen; sed 's/"time":[0-9.]*/"time":T/' seen
    {"time":T,"interface":"can0","id":305419896,"extended":true,"remote":false,"fd":false,"data":"aa"}
    {"time":T,"interface":"can0","id":2047,"extended":false,"remote":true,"fd":false,"data":"","length":0}

What cannot be sent is found before; what nobody acknowledges is told:

    $ for frame in 213##3AABB 45123#81:00:12345678#11 20000004#00 123#R5 123#1122334455667788_E 123#1 can1; do quorvel can send 123#00 $frame; done
    quorvel: '213##3AABB': an FD frame; the gateway sends classic frames only
    quorvel: '45123#81:00:12345678#11': an XL frame; the gateway sends classic frames only
    quorvel: '20000004#00': an error frame, which nobody can send
    quorvel: '123#R5': the gateway sends remote frames of length 0 only
    quorvel: '123#1122334455667788_E': the gateway sends no length codes above 8
    quorvel: '123#1': data are pairs of hex digits
    quorvel: 'can1': 3 hex digits (11 bits) or 8 (29 bits), then #
    [2]
    $ quorvel can send 123
    quorvel: '123': a frame is IDENTIFIER#DATA, such as 123#11.22
    [2]
    $ quorvel can send can100 123#
    quorvel: 'can100': an interface is can0 to can99, or any
    [2]
    $ quorvel can config --mode listen > /dev/null; quorvel can send 123#00; quorvel can config --mode normal > /dev/null
    quorvel: CAN gateway 127.90.3.1:5001: send 123#00: 0x00000221, CAN transmit error
    $ (exec quorvel -g $GATEWAY can send --count 0 --interval 200 123#00) & wait_for=$!; listen can dump -n 1; finish; kill -INT $wait_for; wait $wait_for
      can0  123   [1]  00
    [130]
    $ quorvel can dump 123:7FF,x
    quorvel: FILTER: 'x': 123:7FF, 123~7FF, #FFFFFFFF or j
    [2]
    $ quorvel --port-index 2 can dump can1
    quorvel: can1 and --port-index 2 contradict each other
    [2]

Logs, with the time of the gateway. log2asc and python-can read them; log2long shows them as dump does:

    $ quorvel can config --time-stamps on > /dev/null; quorvel can time --set 1345212884.25 | sed 's/2[56][0-9]*/25/g'
    1345212884.25 (2012-08-17 14:14:44.25) set
    $ listen can dump -ta -a -n 3; screen=$out
    $ listen can log --format asc -n 3 my.asc; asc=$out
    $ listen can log -n 3 my.log
    $ quorvel can send 12345678#0102 123#11223344 456#R; finish; cat <&"$screen" > my.screen; cat <&"$asc"
    3 frames in my.log
    3 frames in my.asc
    $ sed 's/\(8[4-9]\)\.[0-9]\{6\}/\1.xxxxxx/' my.log
    (1345212884.xxxxxx) can0 12345678#0102
    (1345212884.xxxxxx) can0 123#11223344
    (1345212884.xxxxxx) can0 456#R
    $ sed 's/^ //' my.screen | diff - <(log2long < my.log | sed 's/ *$//; s/ \+\x27\x27$//')
    $ log2asc -I my.log can0 | diff - my.asc; head -2 my.asc
    date Fri Aug 17 14:14:44 2012
    base hex  timestamps absolute
    $ cat > reader.py <<'END'
    > import can
    > for name in "my.log", "my.asc":
    >     for frame in can.LogReader(name):
    >         print(int(frame.timestamp) // 10, hex(frame.arbitration_id), frame.is_extended_id, frame.is_remote_frame, frame.data.hex())
    > END
    $ /usr/bin/python3 reader.py 2> /dev/null
    134521288 0x12345678 True False 0102
    134521288 0x123 False False 11223344
    134521288 0x456 False True 
    0 0x12345678 True False 0102
    0 0x123 False False 11223344
    0 0x456 False True 
    $ listen can dump -L -x -N -tz -n 1; quorvel can send 123#00; finish
    (000.000000000) can0 123#00 R
    $ quorvel can log /nowhere/my.log
    quorvel: /nowhere/my.log: No such file or directory
    [5]
    $ ln -s target.log link.log; quorvel -q can log -T 1 /dev/full; quorvel -q can log -T 1 link.log; wc -c < target.log
    0

A log that is there stays until another one can begin, and then is gone on with or written anew only when that is wanted;
two are never written to one file:

    $ quorvel -q can dump -T 1 -f my.log; command quorvel -g 127.90.3.9 can log --force my.log 2>/dev/null; wc -l < my.log
    quorvel: my.log: is there already; --append goes on with it, --force writes it anew
    3
    $ printf broken >> my.log; listen can log -n 1 --append my.log; quorvel can log --force my.log
    quorvel: my.log: another log is being written to it
    [5]
    $ quorvel can send 123#; finish; sed 's/.*) //' my.log | tail -n 2; quorvel -q can dump -T 1 --force -f my.log; wc -c < my.log
    1 frames in my.log
    broken
    can0 123#
    0
    $ for second in {0..9}; do touch "candump-$(date -d "$second seconds" +%Y-%m-%d_%H%M%S).log"; done
    $ for verb in 'dump -l' log; do quorvel can $verb -T 1 2>&1 | sed '1d; s/[0-9]\+/N/g'; done; cat candump-*
    N frames in candump-N-N-N_N-N.log
    N frames in candump-N-N-N_N-N.log
    $ quorvel can log --append --format asc my.asc; quorvel can dump -l --force
    quorvel: --append: the times of an ASC file count from its beginning
    quorvel: --append and --force are for a file that is named
    [2]

A log that ends by Ctrl-C stays, and so does one whose gateway goes:

    $ listen --json can log night.log; quorvel can send --count 3 123#11; until [ "$(wc -l < night.log)" = 3 ]; do :; done; kill -INT $listener; finish
    {"file":"night.log","frames":3,"dropped":0}
    [130]
    $ exec {sim}< <(exec quorvel-sim --address 127.90.3.3); other=$!; read -r -t 10 <&"$sim"
    $ GATEWAY=127.90.3.3; listen can log gone.log; kill $other; finish
    quorvel: CAN gateway 127.90.3.3:5001: receive: 0x00030000, Not connected to TCP/IP partner (the connection is lost)
    0 frames in gone.log
    [4]

Lost frames are counted:

    $ GATEWAY=127.90.3.1
    $ mkfifo pipe; quorvel -q can dump -r 100 -T 2000 2> drops > pipe & exec {pipe}< pipe
    $ until quorvel can send 001#; read -r -t 0.2 line <&"$pipe"; do :; done
    $ quorvel -q can send --count 4000 123#1122334455667788; shown=$(grep -c 123 <&"$pipe"); wait
    $ tail -1 drops | sed 's/[0-9]\+/N/g'; echo $((shown + $(sed -n '$s/.*total drops \([0-9]*\).*/\1/p' drops)))
    DROPCOUNT: dropped N CAN frames on 'canN' socket (total drops N)
    4000

Playing a log: its order, its timing (0.3 s), what is left out; an ASC file too:

    $ printf '(%s) %s\n' 10.000000 'can0 123#11' 10.100000 'can1 124#22' 10.200000 'can0 213##3AABB' 10.300000 'can0 123#R4 T' > play.log
    $ listen can dump -L -n 3 -td; start=${EPOCHREALTIME/./}; quorvel -v can play play.log; echo $((${EPOCHREALTIME/./} - start >= 300000)); finish > seen; sed 's/(.*) //' seen
    quorvel: warning: 1 FD, XL or error frames are left out
    quorvel: warning: 1 frames are sent with another length code
    (0000000010.000000) can0 123#11
    (0000000010.100000) can1 124#22
    (0000000010.300000) can0 123#R4
    1
    can0 123#11
    can0 124#22
    can0 123#R
    $ log2asc -I play.log can0 can1 > play.asc; quorvel -q --json can play -t -l 3 -n 5 --from can0 play.asc 2> /dev/null
    {"frames":5,"left_out":1}
    $ start=${EPOCHREALTIME/./}; printf '(%s) can0 123#\n' 1.000000 3601.000000 2.000000 2.300000 | quorvel --json can play -s 1 -; echo $((${EPOCHREALTIME/./} - start >= 300000))
    {"frames":4,"left_out":0}
    1
    $ printf '(1.000000) can0 123#\n(1.5) can0 123#\n' | quorvel can play -
    quorvel: -: line 2: the time must have 6 or 9 decimals
    [5]

The gateway's filter, power and clock:

    $ quorvel can filter 123:7FF 12345678:9FFFFFFF; quorvel can filter; quorvel --json can filter show
    123:7FF
    12345678:9FFFFFFF
    {"id":291,"extended":false,"mask":2047}
    {"id":305419896,"extended":true,"mask":2684354559}
    $ listen can dump -n 1; quorvel can send 124#00 123#01; finish; quorvel can filter clear; quorvel can filter
      can0  123   [1]  01
    $ quorvel can filter 123~7FF
    quorvel: '123~7FF': a filter is 123:7FF or 12345678:9FFFFFFF, without bits 29 and 30, and not 0:0
    [2]
    $ quorvel can power --relay on --supplies 0x5
    temperature  31.5 C
    input        24000 mV, 200 mA
    relay        on
    termination  on
    live         yes
    supply 0     active, 3300 mV
    supply 1     inactive, 0 mV
    supply 2     active, 12000 mV
    supply 3     inactive, 0 mV
    $ quorvel --json can time --set 2012-08-17T14:14:44
    {"time":1345212884.*,"set":true} (glob)
    $ quorvel can time --set yesterday
    quorvel: 'yesterday': now, seconds since 1970, or a date such as 2012-08-17T14:14:44
    [2]

What a short answer lacks is neither made up nor written back; the power status tells itself how long it is:

    $ short() { exec {sim}< <(exec quorvel-sim --address 127.90.3.4 --fault "CAN:truncate=$1"); other=$!; read -r -t 10 <&"$sim"; for verb in "${@:2}"; do command quorvel -g 127.90.3.4 can $verb; echo $?; done; kill $other; cat <&"$sim"; }
    $ short 5 'config --termination on' time; short 20 power filter
    quorvel: CAN gateway 127.90.3.4:5001: read the settings: the answer is too short
    4
    quorvel: CAN gateway 127.90.3.4:5001: read the clock: the answer is too short
    4
    quorvel: CAN gateway 127.90.3.4:5001: read the power status: the answer is too short
    4
    quorvel: CAN gateway 127.90.3.4:5001: read the filter: the answer is too short
    4

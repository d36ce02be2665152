    $ quorvel() { command quorvel -g "$GATEWAY" "$@"; }
    $ listen() { exec {out}< <(exec quorvel -g "$GATEWAY" "$@" 2>&1); listener=$!; until [[ ${line-} == Listening* ]]; do read -r -t 10 line <&"$out" || break; done; line=; }
    $ finish() { cat <&"$out"; wait "$listener"; }

The master mode is switched on, and said so; nodes that answer:

    $ quorvel -q can config --canopen off | grep CANopen
    CANopen      off
    $ quorvel --progress none canopen scan 1 3
    The gateway's CANopen master mode is now on, for all its clients (off again: quorvel can config --canopen off)
      1  0x00030191  Quorvel CANopen node
    $ quorvel --json --progress none canopen scan 1 1
    {"node":1,"device_type":197009,"name":"Quorvel CANopen node"}

Ctrl-C ends scanning between two nodes:

    $ mkfifo progress; (exec quorvel -q --progress=json -g "$GATEWAY" canopen scan --wait 200) 2> progress & scan=$!
    $ while read -r line; do case $line in *'"done":2,'*) kill -INT $scan 2> /dev/null;; esac; last=$line; done < progress; wait $scan; echo "$? ${last##*,}"
    130 "state":"failed"}

Objects:

    $ quorvel canopen sdo read 1 0x1000
    91 01 03 00
    $ quorvel canopen sdo read 1 4120:2 -t u32
    81
    $ quorvel --json canopen sdo read 1 0x1008:0 -t text
    {"node":1,"index":4104,"subindex":0,"bytes":"51756f7276656c2043414e6f70656e206e6f6465","value":"Quorvel CANopen node"}
    $ quorvel canopen sdo write -t i16 -- 1 0x2001 -40; quorvel canopen sdo read 1 0x2001 -t i16; quorvel canopen sdo read 1 0x2001 -t u16
    -40
    65496
    $ quorvel canopen sdo write 1 0x2000 80ff00 80; quorvel canopen sdo read -b 1 0x2000; quorvel canopen sdo read 1 0x2000 -t i32
    80 ff 00 80
    -2147418240
    $ quorvel canopen sdo read 1 0x2001 -t u32
    quorvel: 0x2001:0 of node 1: 2 bytes instead of 4: d8 ff
    [3]
    $ seq 1 1500 > memory; quorvel canopen sdo write 1 0x2010 -f memory; quorvel canopen sdo read 1 0x2010 -f long; quorvel canopen sdo read -b 1 0x2010 -f - | cmp - memory && cmp long memory

Refusals with the abort code, time-outs, wrong arguments:

    $ quorvel canopen sdo read 1 0x3000
    quorvel: CAN gateway 127.90.3.2:5001: read 0x3000:0 of node 1: SDO abort 0x06020000, no such object: 0x000002FD, CANOpen NACK (No Acknowledge)
    [1]
    $ quorvel canopen sdo write 1 0x1017 1 -t u32
    quorvel: CAN gateway 127.90.3.2:5001: write 0x1017:0 of node 1: SDO abort 0x06070010, wrong length: 0x000002FD, CANOpen NACK (No Acknowledge)
    [1]
    $ quorvel --timeout 500 canopen sdo read 2 0x1000
    quorvel: CAN gateway 127.90.3.2:5001: read 0x1000:0 of node 2: SDO abort 0x05040000, the node has not answered in time: 0x000002FC, CANOpen block timeout (gateway time-out: the gateway answers, but not what is connected to it)
    [1]
    $ exec {sim}< <(exec quorvel-sim --address 127.90.3.5 --fault CAN:truncate=2@2-); other=$!; read -r -t 10 <&"$sim"
    $ for arguments in '-t u32' '-f empty'; do command quorvel -q -g 127.90.3.5 canopen sdo read 1 0x1000 $arguments; done; ls empty; kill $other
    quorvel: CAN gateway 127.90.3.5:5001: read 0x1000:0 of node 1: the answer is too short
    quorvel: CAN gateway 127.90.3.5:5001: read 0x1000:0 of node 1: the answer is too short
    ls: cannot access 'empty': No such file or directory
    $ for value in 256 -1 x; do quorvel canopen sdo write -t u8 -- 1 0x2000 $value; done; quorvel canopen sdo write 1 0x2000; quorvel canopen sdo read 1 0x10000; quorvel canopen nmt 0 start
    quorvel: '256': a number of 8 bits, unsigned
    quorvel: '-1': a number of 8 bits, unsigned
    quorvel: 'x': a number of 8 bits, unsigned
    quorvel: VALUE or --file, one of them
    quorvel: '0x10000': an object is INDEX or INDEX:SUB, such as 0x1018:1
    quorvel: NODE: 1 to 127, or all
    [2]
    $ quorvel canopen sdo write 1 0x2010 -f /nowhere
    quorvel: /nowhere: No such file or directory
    [5]

Events, as text and as JSON; dump puts the frames together again:

    $ quorvel canopen nmt all start
    $ listen can dump -L -n 7; dump=$out
    $ listen --json canopen events -n 7; json=$out
    $ listen canopen events -n 7
    $ quorvel canopen pdo send 1 rpdo1 01 02 03 80; quorvel canopen sync; quorvel canopen sdo write 1 0x2002 0x8180 -t u16; quorvel canopen nmt 1 reset-node; quorvel can send 701#85
    $ finish
    node   1  rpdo1 01 02 03 80
    sync
    node   1  tpdo1 01 02 03 80 d8 ff
    node   1  emergency 0x8180, communication; register 0x01, data 00 00 00 00 00
    frame 000#8101
    node   1  boot-up
    node   1  operational, toggle bit set
    $ sed 's/"time":[0-9.]*/"time":T/' <&"$json"
    {"event":"pdo","node":1,"pdo":"rpdo1","data":"01020380","time":T}
    {"event":"sync","value":0,"time":T}
    {"event":"pdo","node":1,"pdo":"tpdo1","data":"01020380d8ff","time":T}
    {"event":"emergency","node":1,"code":33152,"text":"communication","register":1,"data":"0000000000","time":T}
    {"event":"frame","frame":"000#8101","time":T}
    {"event":"state","node":1,"state":"boot-up","toggle":false,"time":T}
    {"event":"state","node":1,"state":"operational","toggle":true,"time":T}
    $ sed 's/(.*) //' <&"$dump"
    can0 201#01020380
    can0 080#
    can0 181#01020380D8FF
    can0 081#8081010000000000
    can0 000#8101
    can0 701#00
    can0 701#85
    $ listen canopen events -T 2000 -n 2; quorvel canopen sync --period 10; finish; quorvel canopen sync --period 0
    sync
    sync
    $ quorvel -q canopen events -T 50

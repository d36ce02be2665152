    $ quorvel() { command quorvel -g "$GATEWAY" "$@"; }
    $ simulator() { exec 9< <(exec timeout 120 quorvel-sim --address "$@"); pids="${pids-} $!"; read -r -t 20 <&9; }

The device record and the status:

    $ quorvel info --kind sPi
    kind      3 (SPI)
    firmware  53 49 4d 30 33 2d 30 30 30 31 46 57 20 31 2e 30 2e 30  |SIM03-0001FW 1.0.0|
    reserved  01
    $ quorvel --json info --kind 0x11
    {"kind":17,"name":"Relay","firmware":"53494d31372d30303031465720312e302e30","text":"SIM17-0001FW 1.0.0","reserved":1}
    $ quorvel status --kind firmware
    Simulated Firmware gateway at 127.90.1.1:5099 is up for \d+ s, .* (re)
    $ quorvel --json status --kind Renesas
    {"status":"Simulated Renesas gateway at 127.90.1.1:5008 .*"} (re)
    $ quorvel info --kind 99
    quorvel: --kind: '99' is no kind of gateway; there are I2C, CAN, SPI, DIO, AD, Renesas, IO, PWR, COM, AWire, Relay, Firmware
    Try: quorvel info --help
    [2]
    $ quorvel status
    quorvel: --kind is required
    Try: quorvel status --help
    [2]

Ping:

    $ quorvel ping --kind CAN -c 2 -i 0
    CAN gateway 127.90.1.1:5001: request 1: \d+\.\d{3} ms (re)
    CAN gateway 127.90.1.1:5001: request 2: \d+\.\d{3} ms (re)
    2 requests, 2 answers, 0 lost
    round trip min/median/max = \d+\.\d{3}/\d+\.\d{3}/\d+\.\d{3} ms (re)
    $ simulator 127.90.1.10 --fault 'CAN:drop@2' --fault I2C:silent --fault SPI:refuse=0x20 --fault AD:truncate=0
    $ command quorvel -g 127.90.1.10 --json --timeout 3000 ping --kind CAN -c 3 -i 0 | sed -E 's/[0-9]+\.[0-9e-]+/T/g'
    {"request":1,"answered":true,"milliseconds":T}
    {"request":2,"answered":false,"error":"0x00040000, TCP/IP timeout occured"}
    {"request":3,"answered":true,"milliseconds":T}
    {"requests":3,"answers":2,"lost":1,"min":T,"median":T,"max":T}
    $ command quorvel -g 127.90.1.11 ping --kind CAN -c 2 -i 0
    CAN gateway 127.90.1.11:5001: request 1: lost: 0x00020000, TCP/IP socket error
    CAN gateway 127.90.1.11:5001: request 2: lost: 0x00020000, TCP/IP socket error
    2 requests, 0 answers, 2 lost
    [4]

Scan: a gateway, one that refuses, and an open port without one:

    $ command quorvel --timeout 3000 -g 127.90.1.10 scan | sed 's/Simulated.*/.../' | head -n 4
     1  I2C         0   5000  (open, but no gateway answers: 0x00040000, TCP/IP timeout occured)
     2  CAN         0   5001  ...
     3  SPI         0   5002  (refuses: 0x00000320, SPI inconsistent telegram data)
     5  DIO         0   5004  ...
    $ simulator 127.90.1.12 --port-index 2 --fault I2C:close
    $ command quorvel --json scan 127.90.1.12 --indexes 1-3 | grep -E '"name":"(I2C|Firmware)"'
    {"kind":1,"name":"I2C","index":2,"port":5200,"state":"open","error":"0x00030000, Not connected to TCP/IP partner"}
    {"kind":0,"name":"Firmware","index":2,"port":5299,"state":"gateway","status":"Simulated Firmware .*"} (re)
    $ command quorvel --port-index 2 scan 127.90.1.12 | wc -l; quorvel scan 127.90.1.12
    12
    quorvel: 127.90.1.12 and -g 127.90.1.1 contradict each other
    [2]
    $ command quorvel scan 127.90.1.12
    quorvel: 127.90.1.12: no gateway answers (or there is no such host)
    [4]
    $ command quorvel scan 127.90.1.12 --indexes 3-2
    quorvel: --indexes: '3-2' is no range such as 0-3, of 0 to 99
    [2]

Digital lines; the simulator's inputs are its outputs:

    $ quorvel digital write --kind DIO 0xff && quorvel digital write --kind DIO 0x51 --mask 0xf0
    $ quorvel digital read --kind DIO
    inputs   0x0000005f
    outputs  0x0000005f
    $ quorvel --json digital read --kind DIO
    {"inputs":95,"outputs":95}
    $ quorvel digital watch --kind DIO --interval 5 -n 2 |
    > while read -r line; do echo "$line"; quorvel digital write --kind DIO 1; done
    \d{4}-\d\d-\d\d \d\d:\d\d:\d\d\.\d{3}  inputs 0x0000005f  outputs 0x0000005f (re)
    \d{4}-\d\d-\d\d \d\d:\d\d:\d\d\.\d{3}  inputs 0x00000001  outputs 0x00000001 (re)

What a short answer lacks is neither made up nor written back:

    $ simulator 127.90.1.13 --fault DIO:truncate=8 --fault SPI:truncate=20
    $ for verb in read watch 'write 1 --mask 3'; do command quorvel -g 127.90.1.13 digital $verb --kind DIO; done
    quorvel: DIO gateway 127.90.1.13:5004: read digital: the answer is too short
    quorvel: DIO gateway 127.90.1.13:5004: read digital: the answer is too short
    quorvel: DIO gateway 127.90.1.13:5004: read digital: the answer is too short
    [4]
    $ command quorvel -g 127.90.1.13 info --kind SPI
    quorvel: SPI gateway 127.90.1.13:5002: information: the answer is too short
    [4]

Analog lines; the AD gateway answers with values only, the others with a number in front:

    $ quorvel analog write --kind AD 1000 0x10
    $ quorvel analog read --kind AD | sed -n '1p;4,6p;$p'
     0  2500
     3  0
     4  1000
     5  16
    11  0
    $ quorvel analog write --kind SPI 7 && quorvel --json analog read --kind SPI
    {"values":\[2500,\d+,\d+,0,7,0,0,0,0,0,0,0\]} (re)
    $ command quorvel -g 127.90.1.10 analog read --kind AD
    quorvel: AD gateway 127.90.1.10:5006: read analog: 0x000C0000, Quorvel TCP/IP telegram confirmation is invalid (the answer is damaged)
    [4]
    $ quorvel --json analog watch --kind AD --channels 5,4 --threshold 5 --interval 5 -n 2 |
    > while read -r line; do echo "$line"; quorvel analog write --kind AD 1004 16; quorvel analog write --kind AD 1005 16; done
    {"time":\d+\.\d+,"values":\[16,1000\]} (re)
    {"time":\d+\.\d+,"values":\[16,1005\]} (re)
    $ quorvel analog watch --kind AD --channels 12
    quorvel: --channels: there is no channel 12, the gateway has 12
    [2]

Ctrl-C ends watching:

    $ exec 8< <(exec quorvel -g "$GATEWAY" digital watch --kind DIO); watching=$!
    $ read -r -t 20 <&8 && kill -INT $watching && wait $watching
    [130]

Restart, with and without waiting:

    $ quorvel restart --kind PWR
    answers again after \d+\.\d\d s (re)
    $ until text=$(quorvel --timeout 100 restart --kind COM 2>&1); echo "$text [$?]" | grep again; do :; done
    quorvel: COM gateway 127.90.1.1:5012: restart: does not answer again within 100 ms [4]
    $ quorvel restart --kind IO --no-wait
    $ kill $pids

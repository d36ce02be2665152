    $ quorvel() { command quorvel -g "$GATEWAY" "$@"; }

Configurations:

    $ head -c 100000 /dev/zero > line3.cfg
    $ quorvel testsystem config show && quorvel testsystem config available line3
    no configuration is active
    no
    [1]
    $ quorvel testsystem install line3 line3.cfg
    quorvel: COM gateway 127.90.2.2:5012: install line3: 0x00000D20, File could not be opened
    [1]
    $ quorvel testsystem send-file line3.cfg
    Sending | ################################################## | 100% [0-9.]+ s (re)
    $ quorvel testsystem install line3 line3.cfg && quorvel testsystem config available line3
    yes 0xd411957d
    $ python3 -c 'import zlib; print(hex(zlib.crc32(bytes(100000))))'
    0xd411957d
    $ quorvel testsystem config select line3 && quorvel testsystem config show
    line3
    $ quorvel testsystem config select line3
    quorvel: COM gateway 127.90.2.2:5012: select line3: 0x00000D23, Requested configuration is already active
    [1]
    $ echo other > line3.cfg && quorvel testsystem install line3 line3.cfg
    quorvel: COM gateway 127.90.2.2:5012: install line3: 0x00000D22, File CRC mismatch
    [1]
    $ quorvel -q testsystem install --send line4 line3.cfg && quorvel --json testsystem config show
    {"config":"line3"}
    $ quorvel --json testsystem config available line4
    {"config":"line4","available":true,"value":157318766}

Files that are none:

    $ quorvel testsystem send-file missing
    quorvel: missing: No such file or directory
    [5]
    $ quorvel testsystem install --send a .
    quorvel: .: not a regular file
    [5]

A box that takes only part of a file, and one that does not answer:

    $ start() { exec 3< <(exec timeout 120 quorvel-sim --address 127.90.2.4 --fault "$1"); read -r -u 3; }
    $ stop() { kill $!; cat <&3; }
    $ head -c 100000 /dev/zero > line3.cfg
    $ start 'COM:refuse=0@2'
    $ command quorvel -g 127.90.2.4 testsystem send-file line3.cfg
    Sending | ################---------------------------------- | 32% [0-9.]+ s (re)
    quorvel: send line3.cfg: the box has ended the transfer after 65536 of 100000 bytes
    [1]
    $ stop; start 'COM:truncate=2'
    $ command quorvel -g 127.90.2.4 testsystem config available line3
    quorvel: COM gateway 127.90.2.4:5012: ask for line3: the answer is too short
    [4]
    $ stop; start 'COM:silent'
    $ command quorvel -g 127.90.2.4 --timeout 400 testsystem config show
    quorvel: COM gateway 127.90.2.4:5012: get the active configuration: 0x00040000, TCP/IP timeout occured (no answer within 400 ms)
    [4]
    $ stop

Values, supplies and relays:

    $ quorvel testsystem values set 1 0x10 65535 && quorvel testsystem values get | cut -d' ' -f-5
    1 16 65535 0 0
    $ quorvel testsystem power set --box pwr 5 && quorvel testsystem values get --box pwr | cut -d' ' -f1-2
    5 0
    $ quorvel testsystem power set 8 && quorvel testsystem power set --box relay 7 && quorvel testsystem power get | cut -d' ' -f1
    8
    $ quorvel --json testsystem power get --box relay | cut -c-32
    {"box":"relay","values":[7,0,0,0
    $ quorvel testsystem values get | wc -w
    255
    $ quorvel --trace testsystem relay 3 on 2>&1 | grep -A1 -- '->' | tail -1
        00000000  03 01                                            |..|
    $ quorvel testsystem relay 32 off
    quorvel: Relay gateway 127.90.2.2:5016: relay 32 off: 0x000011FF, Quorvel command failed
    [1]
    $ quorvel testsystem values set 65536 2>&1 | head -1
    quorvel: VALUE: Value 65536 not in range 0 to 65535
    $ quorvel testsystem values get --box relay 2>&1 | head -1
    quorvel: --box: relay not in {io,pwr}

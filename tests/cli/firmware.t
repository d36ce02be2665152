    $ quorvel() { command quorvel -g "$GATEWAY" "$@"; }

    $ quorvel firmware info
    serial number  1001
    hardware       KTV-GW 1.2
    software       1.0
    EEPROM         65536 bytes
    $ quorvel --json firmware info
    {"serial_number":1001,"hardware":"KTV-GW 1.2","software":"1.0","eeprom_bytes":65536}

The EEPROM:

    $ quorvel firmware eeprom write --address 0x1fe --format m 0x12,0x34,5
    Reading 3 bytes for eeprom from the command line
    Writing 3 bytes to eeprom, 3 bytes written, 3 verified
    $ quorvel firmware eeprom read --address 0x1fc --length 7
    000001fc  ff ff 12 34 05 ff ff                             |...4...|
    $ quorvel --json firmware eeprom read --address 0 --length 4
    {"first":0,"last":3,"bytes":"000003e9"}
    $ srec_cat -generate 0x400 0x1400 -repeat-string 'EEPROM.' -o e.hex -intel
    $ quorvel -q firmware eeprom write e.hex && quorvel -q firmware eeprom read e.s --format s && srec_cat e.s -crop 0x400 0x1400 -o crop.hex -intel && srec_cmp e.hex -intel crop.hex -intel
    $ printf '\177ELF' > elf.bin; quorvel -q firmware eeprom write --address 0x300 elf.bin
    $ quorvel -q firmware eeprom read --address 0x300 --length 4 elf.hex && tail -1 elf.hex
    :00000001FF
    $ yes 1, | quorvel firmware eeprom write - --format d
    quorvel: standard input: longer than 1048576 bytes, 16 for each byte of the memory
    [5]
    $ quorvel firmware eeprom read --address 1 --length 0x10000
    quorvel: --length: 65536, but from 0x0001 on eeprom has 65535 bytes
    [2]
    $ quorvel firmware eeprom write --address 0xffff --format m 1,2
    quorvel: the command line: 0x00010000-0x00010000 is outside eeprom (0x00000000-0x0000ffff)
    [5]

An update asks, and checks the file first:

    $ srec_cat -generate 0 5000 -repeat-string 'New firmware. ' -o new.hex -intel
    $ quorvel firmware update new.hex < /dev/null
    quorvel: there is no terminal to ask for permission: give --yes
    [2]
    $ script -qec "quorvel -g $GATEWAY firmware update new.hex" /dev/null <<< n | tail -1 | sed 's/.*] //; s/\r//'
    quorvel: not updated: you did not agree
    $ srec_cat new.hex -intel -offset 0x3f000 -o high.hex -intel; quorvel firmware update --yes high.hex
    quorvel: input file high.hex: 0x00040000-0x00040387 is outside flash (0x00000000-0x0003ffff)
    [5]
    $ quorvel -q firmware read old.bin && tr -d '\0' < old.bin | wc -c
    0
    $ quorvel firmware update --yes new.hex
    Reading 5000 bytes for flash from input file new.hex
    Erasing flash
    Writing 5000 bytes to flash
    Writing \| #{50} \| 100% \d+\.\d\d s (re)
    Reading \| #{50} \| 100% \d+\.\d\d s (re)
    5000 bytes of flash verified
    Restarting
    serial number 1001, hardware KTV-GW 1.2, software 1.0
    $ quorvel -q firmware read new.bin && srec_cat new.hex -intel -fill 0xFF 0 0x40000 -o filled.bin -binary && cmp new.bin filled.bin
    $ quorvel -q firmware read - --format i --address 100 --length 4900 | srec_cat - -intel -o - -intel | srec_info - -intel
    Format: Intel Hexadecimal (MCS-86)
    Data:   0064 - 1387

A gateway that refuses a block, and an update that is interrupted:

    $ mkfifo ready progress
    $ start() { command quorvel-sim --address 127.90.4.7 --fault "$1" > ready & sim=$!; read -r -t 20 < ready; }
    $ start 'Firmware:refuse=0xff@5'
    $ command quorvel -q -g 127.90.4.7 firmware update --yes new.hex
    quorvel: Firmware gateway 127.90.4.7:5099: write flash 0x0800: 0x000000FF, Quorvel command failed
    quorvel: warning: the gateway has no complete firmware: repeat the update before it is restarted
    [1]
    $ kill $sim; wait $sim; start 'Firmware:truncate=13'
    $ command quorvel -g 127.90.4.7 firmware info
    quorvel: Firmware gateway 127.90.4.7:5099: get device information: the answer is too short
    [4]
    $ kill $sim; wait $sim; start 'Firmware:silent@3'
    $ (exec quorvel -q --trace --timeout 50000 -g 127.90.4.7 firmware update --yes new.hex) 2> progress & pid=$!
    $ while read -r line; do case $line in *'-> firmware clear flash'*) kill -INT $pid;; quorvel*) echo "$line";; esac; done < progress; wait $pid
    quorvel: warning: the gateway has no complete firmware: repeat the update before it is restarted
    [130]
    $ kill $sim; wait $sim; start 'Firmware:close@5'
    $ command quorvel -q -g 127.90.4.7 firmware update --yes new.hex
    quorvel: Firmware gateway 127.90.4.7:5099: write flash 0x0800: 0x00030000, Not connected to TCP/IP partner (the connection is lost)
    quorvel: warning: the gateway has no complete firmware: repeat the update before it is restarted
    [4]

A signal that was ignored at the start stays ignored, and nobody has to listen:

    $ kill $sim; wait $sim; start 'Firmware:delay=20@4-'
    $ (trap '' INT; exec quorvel --progress=json -g 127.90.4.7 firmware update --yes new.hex) 2> progress & pid=$!
    $ read -r line < progress; kill -INT $pid; wait $pid
    serial number 1001, hardware KTV-GW 1.2, software 1.0
    $ kill $sim; wait $sim; start 'Firmware:truncate=1@1'
    $ command quorvel -g 127.90.4.7 firmware eeprom read; command quorvel -g 127.90.4.7 firmware eeprom write --format m 1
    quorvel: Firmware gateway 127.90.4.7:5099: get EEPROM size: the answer is too short
    quorvel: Firmware gateway 127.90.4.7:5099: get EEPROM size: the answer is too short
    [4]
    $ kill $sim; wait $sim

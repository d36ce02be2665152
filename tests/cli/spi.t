    $ quorvel() { command quorvel -g "$GATEWAY" "$@"; }
    $ simulator() { exec 9< <(exec timeout 120 quorvel-sim --address "$@"); pids="${pids-} $!"; read -r -t 20 <&9; }

Transfers:

    $ quorvel spi transfer 9f 0 0 0
    ff c2 20 17
    $ quorvel --json spi transfer 9f --read 3
    {"bytes":"ffc22017"}
    $ quorvel --trace spi transfer 9f 0 2>&1 | sed 's/^[0-9:.]* //'
    -> SPI transfer 0x0303 id 2, 2 bytes
       00000000  9f 00                                            |..|
    <- SPI transfer 0x8303 id 2, result 0x00, 3 bytes
       00000000  00 ff c2                                         |...|
    ff c2
    $ for bytes in 9g 9f0; do quorvel spi transfer $bytes; done
    quorvel: BYTES: '9g': bytes in hex, such as 9f 0 0 0
    quorvel: BYTES: '9f0': bytes in hex, such as 9f 0 0 0
    [2]
    $ quorvel spi transfer 9f --read 65527
    quorvel: a transfer has 1 to 65527 bytes, not 65528
    [2]
    $ quorvel spi transfer 9f --input nowhere
    quorvel: nowhere: No such file or directory
    [5]

Bus parameters; what is not given stays:

    $ quorvel spi config
    baud rate  1000000
    level      2
    aux        1
    mode       0
    $ quorvel spi config --mode 3 --baud-rate 0x10000 && quorvel --json spi config
    {"baud_rate":65536,"level":2,"aux":1,"mode":3}
    $ quorvel spi config --mode 9
    quorvel: SPI gateway 127.90.0.2:5002: set bus parameters: 0x00000320, SPI inconsistent telegram data
    [1]
    $ quorvel spi config --level 256 2>&1 | head -1
    quorvel: --level: Value 256 not in range 0 to 255
    $ quorvel spi config --aux 0 && quorvel spi transfer 9f
    quorvel: SPI gateway 127.90.0.2:5002: transfer: 0x00000321, SPI error while sending
    [1]
    $ quorvel spi config --aux 1 --mode 1 && quorvel spi flash id
    quorvel: no flash answers: its id reads ff ff ff
    [1]
    $ quorvel spi flash erase --size 8M --all --progress none
    quorvel: flash status: the flash is still busy after 1000 ms
    [4]
    $ quorvel spi config --mode 0 --baud-rate 1000000

Sequences: program 41 42 at 0x10, read them back:

    $ quorvel spi sequence 020100 06 020600 02000010 4142 040200 030400 03000010 0300 --expect 3
    41 42 ff
    $ quorvel --json -v spi sequence --async 030100 9f 0300
    the sequence is on its way, telegram 2
    {"bytes":"c22017"}
    $ printf '\003\001\000\237\003\000' > id.seq
    $ quorvel spi sequence --input id.seq --expect 4
    c2 20 17
    quorvel: the answer holds 3 bytes, expected were 4
    [3]
    $ quorvel spi sequence ff
    quorvel: SPI gateway 127.90.0.2:5002: sequence: 0x00000330, SPI sequence unknown command op code
    [1]
    $ printf '\000\017' > in.bin
    $ quorvel spi transfer 03 00 --input in.bin --read 3 --output out.bin && od -An -tx1 out.bin
     ff ff ff ff ff 41 42

Flash: only what differs is erased and programmed, and what lies beside it stays:

    $ quorvel spi flash id
    c2 20 17  8388608 bytes
    $ quorvel --json spi flash id
    {"id":"c22017","size":8388608}
    $ printf 'abcdef' > a.bin
    $ no_seconds() { sed 's/,"seconds":[^,}]*//'; }
    $ quorvel -q --json spi flash write a.bin --offset 0xb | no_seconds
    {"written":6,"erased":4096,"programmed":7}
    {"operation":"verify","memory":"flash","bytes":6,"differing":0,"bits_set":false,"bits_cleared":false,"mismatches":[]}
    $ quorvel -q --json spi flash write -V a.bin --offset 0xb
    {"written":6,"erased":0,"programmed":0}
    $ quorvel -q spi flash read --address 0xa --length 9 - | od -An -c
     377   a   b   c   d   e   f   B 377
    $ printf 'x' | quorvel -q --json spi flash write -V - --no-preserve --offset 0x10
    {"written":1,"erased":4096,"programmed":1}
    $ quorvel -q spi flash read --address 0xa --length 9 - | od -An -c
     377 377 377 377 377 377   x 377 377
    $ quorvel -v --progress=plain spi flash write a.bin --offset 0x12
    Writing 6 bytes to flash
    Writing \| #{50} \| 100% \d+\.\d\d s (re)
    0 bytes erased, 6 bytes programmed
    Verifying \| #{50} \| 100% \d+\.\d\d s (re)
    6 bytes of flash verified

Every sector of a block, and one more: one byte in each of 17 sectors:

    $ image() { for i in {0..15}; do printf 'S104%X080%s%02X\n' $i $1 $(((123 - 16 * i - 0x$1) & 255)); done
    > printf 'S205010080%s%02X\nS9030000FC\n' $1 $((121 - 0x$1)); }
    $ write() { image $1 | quorvel -q --trace=trace spi flash write - --offset 256K "${@:2}"; }
    $ erasing() { sed -n 's/.* 00000000  \(\(20\|d8\|21\|dc\) .*[0-9a-f]\) .*/\1/p' trace; }
    $ write 00 --format motorola && erasing
    $ write 01 && erasing
    d8 04 00 00
    20 05 00 00
    $ write 03 --erase-size 64K && erasing
    d8 04 00 00
    d8 05 00 00
    $ write 07 --erase-size 4k && erasing | tail -n 2
    20 04 f0 00
    20 05 00 00
    $ image 03 | quorvel -q spi flash verify - --offset 256K 2>&1 | sed 2,9d
      device 0x07 != input 0x03 at addr 0x40080 (error)
      device 0x07 != input 0x03 at addr 0x49080 (error)
      and 7 more
    quorvel: 17 of 17 bytes of flash differ from standard input: bits are only set on the device, as if not written
    $ printf 'S10400800774\nS9030000FC' | quorvel -q --json spi flash verify - --offset 0x4f000 | no_seconds
    {"operation":"verify","memory":"flash","bytes":1,"differing":0,"bits_set":false,"bits_cleared":false,"mismatches":[]}
    $ write 18 --no-erase 2>&1 | tail -1
    quorvel: 17 of 17 bytes of flash differ from standard input: bits are only cleared on the device, as if not erased before

Page boundaries, empty pages, a range that is no whole number of sectors:

    $ seq 200 > numbers
    $ quorvel -q --json spi flash write -V numbers --offset 0x70035 && quorvel -q spi flash verify numbers --offset 0x70035
    {"written":692,"erased":0,"programmed":692}
    $ { head -c 600 /dev/zero | tr '\0' '\377'; printf 'a'; } > empty.bin
    $ quorvel -q --json spi flash write -D -V empty.bin --offset 0x60000
    {"written":601,"erased":0,"programmed":1}
    $ quorvel -q --json spi flash erase --address 0x70100 --length 4K
    {"first":459008,"last":463103,"erased":4096,"programmed":203}

Files of other tools, across 64 KiB and with nothing left out:

    $ quorvel -q spi flash read --address 0x70035 --length 203 o.hex && srec_info o.hex -intel
    Format: Intel Hexadecimal (MCS-86)
    Data:   070035 - 0700FF
    $ quorvel -q spi flash read --address 0x70035 --length 203 o.mot && srec_cmp o.hex -intel o.mot -motorola
    $ srec_cat o.mot -motorola -offset -0x70035 -o o.bin -binary && cmp -n 203 o.bin numbers
    $ quorvel -q spi flash write -V numbers --offset 0xfff8
    $ quorvel -q spi flash read --address 0xfff8 --length 16 --format intel - | srec_info - -intel
    Format: Intel Hexadecimal (MCS-86)
    Data:   00FFF8 - 010007
    $ quorvel -q spi flash read --address 0xfff8 --length 692 o.ihex && quorvel -q spi flash verify o.ihex

Beyond 16 MiB addresses have 4 bytes:

    $ large() { quorvel -q --trace=trace spi flash "$@" --size 32M; }
    $ large read --address 0x1020304 --length 2 o.bin && sed -n 's/.* 00000000  \(13 .*[0-9a-f]\) .*/\1/p' trace
    13 01 02 03 04 00 00
    $ large write a.bin -D -V --offset 0x1020304 && sed -n 's/.* 00000000  \(12 .*[0-9a-f]\) .*/\1/p' trace
    12 01 02 03 04 61 62 63 64 65 66
    $ large erase --address 0x1020000 --length 68K && erasing
    dc 01 02 00 00
    21 01 03 00 00

Bad arguments:

    $ quorvel spi flash erase
    quorvel: erase what? Give --all, --address or --length
    [2]
    $ quorvel spi flash erase --address 8M
    quorvel: --address: the flash has the addresses 0x0000-0x7fffff
    [2]
    $ quorvel spi flash read - --address 0x7fffff --length 2
    quorvel: --length: 2, but from 0x7fffff on the flash has 1 byte
    [2]
    $ printf '\n:0100000742B6\n' > lost.hex; quorvel spi flash write lost.hex
    quorvel: lost.hex:2: a record of an unknown type: ':0100000742B6'
    [5]
    $ quorvel spi flash read --size=-4K - 2>&1 | head -1
    quorvel: --size: '-4K' is no number of bytes, such as 4096, 0x1000 or 4K
    $ quorvel spi flash read --size 5000 - 2>&1 | head -1
    quorvel: --size: 5000 is no multiple of 4096 up to 4 GiB
    $ quorvel spi flash write a.bin --page 100 2>&1 | head -1
    quorvel: --page: 100 is no power of two from 1 to 4096
    $ quorvel spi flash write a.bin --offset 0x7ffffb
    quorvel: a.bin: reaches to 0x800000; the last byte of the memory is 0x7fffff
    [5]
    $ truncate -s 5G sparse; for file in sparse /dev/zero; do (ulimit -v 1000000; quorvel spi flash write $file; quorvel spi transfer --input $file); done
    quorvel: sparse: longer than 8388608 bytes, more than the memory has
    quorvel: sparse: longer than 65528 bytes
    quorvel: /dev/zero: neither a file nor a pipe
    quorvel: /dev/zero: neither a file nor a pipe
    [5]
    $ yes : | quorvel spi flash verify --size 64K -; quorvel spi flash verify --size 64K - < /dev/zero
    quorvel: standard input: longer than 1048576 bytes, 16 for each byte of the memory
    quorvel: standard input: longer than 65536 bytes, more than the memory has
    [5]
    $ quorvel spi flash verify a.bin --offset=-1
    quorvel: a.bin: the offset moves 0x0 below address 0
    [5]

A gateway whose flash is protected (all its answers are zeros), one that loses bytes, one that says nothing:

    $ cat > zeros.py << 'END'
    > import socket, struct
    > s = socket.create_server(("127.90.1.16", 5002)); print("ready", flush=True)
    > s.settimeout(20); c = s.accept()[0]; f = c.makefile("rb")
    > while head := f.read(6):
    >     length, code, number = struct.unpack("<HHh", head); n = length - 5; f.read(n + 1)
    >     body = struct.pack("<HHh", n + 6, code | 0x8000, number) + bytes(1 + n)
    >     crc = 0
    >     for byte in body[2:]: crc ^= byte
    >     c.sendall(body + bytes([crc]))
    > END
    $ exec 8< <(exec timeout 120 python3 zeros.py); read -r -t 20 <&8
    $ command quorvel -g 127.90.1.16 -q spi flash write -D a.bin --size 8M
    quorvel: program flash at 0x0: the flash does not take the write enable command: status 0x00
    [1]
    $ simulator 127.90.1.17 --fault 'SPI:truncate=3'
    $ command quorvel -g 127.90.1.17 spi flash id
    quorvel: SPI gateway 127.90.1.17:5002: read flash id: the answer is too short
    [4]
    $ simulator 127.90.1.18 --fault 'SPI:silent@3'
    $ (exec quorvel -g 127.90.1.18 --timeout 20000 -q spi flash read big.bin) &
    $ end=$((SECONDS + 10)); until compgen -G 'big.bin.*' > found || ((SECONDS > end)); do :; done
    $ kill -INT $!; wait $!
    [130]
    $ ls big.bin*
    ls: cannot access 'big.bin*': No such file or directory
    [2]
    $ simulator 127.90.1.19 --fault SPI:delay=40; printf %0256d 0 > beside; printf abc > abc; mkfifo frames
    $ for at in 0 0xf00; do command quorvel -q -g 127.90.1.19 spi flash write beside --offset $at; done
    $ (exec quorvel -q --trace -g 127.90.1.19 spi flash write abc --offset 0xf00) 2> frames & pid=$!
    $ while read -r line; do case $line in *'  20 00 00 00 '*) kill -INT $pid;; esac; done < frames; wait $pid
    [130]
    $ command quorvel -q -g 127.90.1.19 spi flash read - --length 0xf00 | tr -d '\377' | wc -c
    256
    $ kill $pids

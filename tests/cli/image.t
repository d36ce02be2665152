    $ printf '%s\n' :10010000214601360121470136007EFE09D2190140 :0400000300003800C1 :03012000010203D6 :00000001FF > a.hex
    $ printf 'S0030000FC\r\nS10701002146013659\nS9030000FC\n' > a.s19

What is in a file; the start address record is a warning, a hole has no CRC:

    $ quorvel image info a.hex
    quorvel: warning: a.hex:2: a start segment address, left out: ':0400000300003800C1'
    a.hex: intel, 19 bytes in 2 ranges
      0x00000100-0x0000010f          16 bytes  CRC-32 aa58267d
      0x00000110-0x0000011f          16 bytes  hole
      0x00000120-0x00000122           3 bytes  CRC-32 55bc801d
      CRC-32 of all data, without the holes: affb2156
    $ quorvel image info --json a.s19 - < a.s19
    {"file":"a.s19","format":"motorola","size":4,"last_included":true,"ranges":[{"first":256,"last":259,"size":4,"crc32":"9b7c42ed"}],"holes":[],"crc32":"9b7c42ed"}
    {"file":"-","format":"motorola","size":4,"last_included":true,"ranges":[{"first":256,"last":259,"size":4,"crc32":"9b7c42ed"}],"holes":[],"crc32":"9b7c42ed"}

Faults are told with their lines, and the rest is read; what the library prints of its own accord is not among the data:

    $ printf '%s\n' :0100000001FF :0100010002FC :0400020003 > bad.hex
    $ quorvel image info bad.hex 2>err; cat err
    bad.hex: intel, 2 bytes in 1 range
      0x00000000-0x00000001           2 bytes  CRC-32 b6cc4292
      CRC-32 of all data: b6cc4292
    quorvel: bad.hex:1: wrong checksum: ':0100000001FF'
    quorvel: bad.hex:3: no complete record: ':0400020003'
    $ quorvel image info bad.hex > out 2>&1
    [5]
    $ printf 'S10501002146FF\n' | quorvel image dump -
    quorvel: standard input:1: wrong checksum: 'S10501002146FF'
    00000100  21 46                                            |!F|
    [5]
    $ yes xyz | head -25 | quorvel image info --from intel - 2>&1 | tail -3
    quorvel: warning: standard input: 5 more lines with faults
    -: intel, 0 bytes in 0 ranges
      CRC-32 of all data: 00000000

The name tells the format, and else the first character; data that get lost are an error, and a missing end a doubt:

    $ printf '%s\n' '; lead' '' :0100000001FE :00000001FF > lead.HEX; quorvel image dump lead.HEX
    00000000  01                                               |.|
    $ printf '\357\273\277S1040000010000\nS9030000FC\n' > bom.mot; quorvel image dump bom.mot
    quorvel: bom.mot:1: no complete record: '\xef\xbb\xbfS1040000010000' (esc)
    [5]
    $ printf '%s\n' S404000012E9 S604000001FA S604000001FB S9030000FC > odd.mot; quorvel image dump odd.mot
    quorvel: odd.mot:1: a record of an unknown type: 'S404000012E9'
    quorvel: warning: odd.mot:2: a count of records, left out: 'S604000001FA'
    quorvel: odd.mot:3: a record of an unknown type: 'S604000001FB'
    [5]
    $ printf '%s\n' :0100000701F7 :01000003FFFD :0400000300003800C0 :00000001FF | quorvel image dump --from intel -
    quorvel: standard input:1: a record of an unknown type: ':0100000701F7'
    quorvel: standard input:2: a record of an unknown type: ':01000003FFFD'
    quorvel: standard input:3: a record of an unknown type: ':0400000300003800C0'
    [5]
    $ for file in a.hex a.s19; do sed '$d' $file | quorvel -q image map - 2>&1 | grep end; done
    quorvel: warning: standard input: no end record: is the file complete?
    quorvel: warning: standard input: no end record: is the file complete?
    $ printf ':1' > colon.bin; quorvel image dump colon.bin
    00000000  3a 31                                            |:1|
    $ rm colon.bin lead.HEX bom.mot odd.mot

A target file is untouched after a failure, and nothing is left beside it:

    $ echo old > out.bin; quorvel image convert bad.hex out.bin 2>/dev/null
    [5]
    $ quorvel image convert a.hex out.bin 2>&1 | grep -v warning
    quorvel: binary has no addresses, and the image has 1 hole, the first one at 0x00000110-0x0000011f: fill with --fill VALUE, or choose with --crop
    $ quorvel image convert --crop 0x100-0x10f a.hex out.bin 2>&1 | grep -v warning
    quorvel: binary has no addresses, and the image begins at 0x00000100: move it with --offset -0x100, or fill with --fill VALUE --fill-range 0-0xff
    $ (ulimit -f 1; trap '' XFSZ; head -c 2000 /dev/zero | quorvel image convert - out.bin)
    quorvel: out.bin: File too large
    [5]
    $ cat out.bin; ls
    old
    a.hex
    a.s19
    bad.hex
    err
    out
    out.bin

Crop, fill, move; the others read what is written:

    $ quorvel image convert a.hex out.bin --fill 0xee --offset -0x100 2>/dev/null; od -An -tx1 out.bin
     21 46 01 36 01 21 47 01 36 00 7e fe 09 d2 19 01
     ee ee ee ee ee ee ee ee ee ee ee ee ee ee ee ee
     01 02 03
    $ quorvel image convert a.s19 - --to intel --offset 0x12340000
    :020000041234B4
    :04010000214601365D
    :00000001FF
    $ quorvel image convert a.s19 b.hex --fill 0 --fill-range 0x102-0x105; srec_info b.hex -intel
    Format: Intel Hexadecimal (MCS-86)
    Data:   0100 - 0105
    $ quorvel image convert a.hex a.srec 2>/dev/null; grep -v :04000003 a.hex | srec_cmp a.srec -motorola - -intel
    $ objcopy -I srec -O ihex a.srec o.hex && quorvel image compare --json - a.hex 2>/dev/null < o.hex
    {"differing":0,"only_in_a":0,"only_in_b":0,"differences":[],"last_included":true,"ranges_only_in_a":[],"ranges_only_in_b":[]}
    $ printf abc | quorvel image convert - --base 0xfffffffd c.hex; srec_info c.hex -intel
    Format: Intel Hexadecimal (MCS-86)
    Data:   FFFFFFFD - FFFFFFFF
    $ head -c 100000 /bin/sh > sh.bin; quorvel image convert --base 0xfff8 sh.bin sh.s37; srec_cmp sh.s37 -motorola sh.bin -binary -offset 0xfff8
    $ quorvel image convert sh.s37 sh.hex && srec_cmp sh.hex -intel sh.bin -binary -offset 0xfff8
    $ quorvel image convert --offset -0xfff8 sh.s37 - --to binary | cmp - sh.bin
    $ quorvel image convert --offset 1 c.hex d.hex
    quorvel: --offset: 0xfffffffd-0xffffffff would leave the addresses 0-0xffffffff
    [5]
    $ printf abcd | quorvel image convert - --base 0xfffffffd d.hex
    quorvel: --base: the data would end above 0xffffffff
    [5]

Arguments:

    $ quorvel image convert a.s19 - 2>&1; quorvel image convert a.s19 x.hex --base 1
    quorvel: -: the name tells no format; give --to intel, motorola or binary
    quorvel: --base is for binary input, but a.s19 is motorola; --offset moves it
    [2]
    $ quorvel image convert a.s19 x.hex --crop 5-4 2>&1 | head -1
    quorvel: --crop: '5-4' is no range such as 0x100-0x1ff, the last included
    $ quorvel image convert a.s19 x.hex --to elf
    quorvel: --to: 'elf' is none of auto, intel, motorola, binary
    Try: quorvel image convert --help
    [2]

Comparing:

    $ printf 'S10701022047363721\nS9030000FC\n' > d.s19
    $ quorvel image compare a.s19 d.s19
    differing bytes: 2; only in a.s19: 2; only in d.s19: 2
      0x01 != 0x20 at 0x0102
      0x36 != 0x47 at 0x0103
      only in a.s19: 0x0100-0x0101
      only in d.s19: 0x0104-0x0105
    [3]

Dump and map:

    $ quorvel image dump --address 0x10e --length 20 a.hex 2>/dev/null
    0000010e  19 01                                            |..|
              hole of 16 bytes
    00000120  01 02                                            |..|
    $ quorvel image dump --address 0x104 a.s19
    quorvel: a.s19: no data at these addresses
    [5]
    $ quorvel image dump --json a.s19
    {"first":256,"last":259,"last_included":true,"bytes":"21460136"}
    $ quorvel image map a.hex 2>/dev/null
    0x00000100               0x00000122
    ================                ===

An image all over the address space takes little memory (in KiB):

    $ seq 0 65535 | awk '{ s = 11 + int($1 / 256) + $1 % 256
    >     printf "S307%08X0202%02X\n", $1 * 65536, 255 - s % 256 } END { print "S70500000000FA" }' > wide.s37
    $ python3 -c 'import resource, subprocess
    > subprocess.run(["quorvel", "image", "map", "wide.s37"])
    > print(resource.getrusage(resource.RUSAGE_CHILDREN).ru_maxrss < 450000)'
    0x00000000                                                            0xffff0001
    --------------------------------------------------------------------------------
    True

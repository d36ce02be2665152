    $ quorvel() { command quorvel -g "$GATEWAY" "$@"; }
    $ image() { srec_cat -generate "$2" "$3" -repeat-string "$4" -o "$1" -intel; }

The target:

    $ quorvel awire info
    target    simulated target
    baud_rate 1000000
    flash     0x10000000-0x100fffff, 1048576 bytes, pages of 512 bytes, erased in blocks of 65536 bytes
    user      0x10100000-0x101001ff, 512 bytes, pages of 512 bytes, erased as a whole
    $ quorvel --json awire info --block-size 0x20000
    {"target":"simulated target","baud_rate":1000000,"memories":[{"name":"flash","first":268435456,"last":269484031,"bytes":1048576,"page":512,"erase_block":131072},{"name":"user","first":269484032,"last":269484543,"bytes":512,"page":512,"erase_block":512}]}

A dry run reads the file and leaves the target alone:

    $ image diag.hex 0x10000100 0x10004C4E 'Diagnosis on board. '
    $ quorvel awire flash diag.hex -e --dry-run
    flash not erased: dry run
    Reading 19278 bytes for flash from input file diag.hex
    19278 bytes of flash not written: dry run
    $ quorvel awire verify diag.hex
    Reading 19278 bytes for flash from input file diag.hex
    Reading \| #{50} \| 100% \d+\.\d\d s (re)
      device 0xff != input 0x44 at addr 0x10000100 (error)
      device 0xff != input 0x69 at addr 0x10000101 (error)
      device 0xff != input 0x61 at addr 0x10000102 (error)
      device 0xff != input 0x67 at addr 0x10000103 (error)
      device 0xff != input 0x6e at addr 0x10000104 (error)
      device 0xff != input 0x6f at addr 0x10000105 (error)
      device 0xff != input 0x73 at addr 0x10000106 (error)
      device 0xff != input 0x69 at addr 0x10000107 (error)
      device 0xff != input 0x73 at addr 0x10000108 (error)
      device 0xff != input 0x20 at addr 0x10000109 (error)
      and 19268 more
    quorvel: 19278 of 19278 bytes of flash differ from input file diag.hex: bits are only set on the device, as if not written
    [3]

Writing, and every format back:

    $ quorvel -v awire flash diag.hex
    Reading 19278 bytes for flash from input file diag.hex
    Erasing 1 block of flash
    Writing 19278 bytes to flash
    Writing \| #{50} \| 100% \d+\.\d\d s (re)
    19968 bytes in \d+\.\d\d s, \d+ bytes/s (re)
    Reading \| #{50} \| 100% \d+\.\d\d s (re)
    19278 bytes in \d+\.\d\d s, \d+ bytes/s (re)
    19278 bytes of flash verified
    $ range='--address 0x10000100 --length 19278'
    $ quorvel -q awire read diag.i --format i $range && srec_cmp diag.hex -intel diag.i -intel
    $ quorvel -q awire read diag.s --format s $range && srec_cmp diag.hex -intel diag.s -motorola
    $ quorvel -q awire read diag.r $range && srec_cmp diag.hex -intel diag.r -binary -offset 0x10000100
    $ for f in d h o b; do quorvel -q awire read list --format $f $range &&
    > quorvel -q awire verify list --format $f --address 0x10000100; done
    $ for f in d h o b I; do quorvel -q awire read - --format $f --address 0x100000ff --length 3; done
    255,68,105
    0xff,0x44,0x69
    0377,0104,0151
    0b11111111,0b1000100,0b1101001
    :020000041000EA
    :0100FF00FF01 // 100000ff> .
    :02010000446950 // 10000100> Di
    :00000001FF
    $ ld -b binary diag.r -Tdata=0x10000100 -n -e 0 -o diag.elf && quorvel -q awire verify diag.elf

Memory operations run in order. An ELF file goes where its segments are physically:

    $ cp "$QUORVEL_SOURCE/fuzz/corpus/memory_operation/elf32" .
    $ quorvel awire flash -U user:w:0x12:m -U user:w:255,0b1000:m -U user:r:a:b:h -U user:v:a:b:h -U elf32
    Reading 1 byte for user from the command line
    Erasing user
    Writing 1 byte (0x12) to user, 1 byte written, 1 verified
    Reading 2 bytes for user from the command line
      device 0x12 != input 0xff at addr 0x10100000 (error)
    quorvel: 1 of 2 bytes of user differs from the command line: bits are only cleared on the device, as if not erased before
    [3]
    $ quorvel -q --json awire flash -U user:r:a:b:h -U user:v:a:b:h -U elf32 | sed 's/,"seconds":[^,}]*//'
    {"operation":"read","memory":"user","first":269484032,"last":269484543,"bytes":512,"file":"a:b"}
    {"operation":"verify","memory":"user","bytes":512,"differing":0,"bits_set":false,"bits_cleared":false,"mismatches":[]}
    {"operation":"erase","memory":"flash","blocks":1}
    {"operation":"write","memory":"flash","bytes":4}
    {"operation":"verify","memory":"flash","bytes":4,"differing":0,"bits_set":false,"bits_cleared":false,"mismatches":[]}
    $ quorvel -q awire read - --format h --address 0x10000200 --length 4
    0xca,0xfe,0xba,0xbe
    $ quorvel -q awire flash -U all,-user:w:diag.hex -U ALL:r:all.hex:i -U flash,user:v:all.hex
    $ srec_cat all.hex -intel -crop 0x10000100 0x10004C4E 0x10100000 0x10100002 -o - -intel | srec_info - -intel
    Format: Intel Hexadecimal (MCS-86)
    Data:   10000100 - 10004C4D
            10100000 - 10100001

Bad arguments and files, before anything is written:

    $ quorvel awire flash -U fuse:w:0:m
    quorvel: 'fuse' is no memory; there are: flash, user, all
    [2]
    $ quorvel awire flash -U flash:x:diag.hex
    quorvel: flash:x:diag.hex: behind the memory is r to read, w to write or v to verify
    [2]
    $ quorvel awire flash -U user:w:0x100:m
    quorvel: 0x100: '0x100' is no byte: 0 to 255, 0x0 to 0xff, 00 to 0377 or 0b0 to 0b11111111
    [2]
    $ quorvel awire flash -U all:r:all.bin:r
    quorvel: a raw file holds one memory only
    [2]
    $ quorvel --json awire read - -m user
    quorvel: standard output cannot take both a memory and --json
    [2]
    $ quorvel awire read x --format e 2>&1 | head -1
    quorvel: --format: e not in {a,b,d,h,i,I,o,r,s}
    $ quorvel awire read x --address 0x10100000
    quorvel: --address: flash has the addresses 0x10000000-0x100fffff
    [2]
    $ quorvel awire flash
    quorvel: nothing to do: give FILE, -U or -e
    [2]
    $ quorvel awire flash -U user:w:0:m -U missing.hex
    quorvel: missing.hex: No such file or directory
    [5]
    $ head -c 60 elf32 > cut.elf; quorvel awire flash cut.elf
    quorvel: cut.elf: the ELF file ends within its program headers
    [5]
    $ image low.hex 0xFFFFFF0 0x10000010 x; quorvel awire flash -U user:w:0:m -U low.hex
    quorvel: input file low.hex: 0x0ffffff0-0x1000000f is outside flash (0x10000000-0x100fffff)
    [5]
    $ poke() { printf "$2" | dd of="$1" bs=1 seek=$3 conv=notrunc status=none; }
    $ cp elf32 note.elf; poke note.elf '\4' 55; quorvel awire flash -U user:w:0:m -U note.elf
    quorvel: note.elf: there are no data in it
    [5]
    $ cp elf32 two.elf; poke two.elf '\2' 98; poke two.elf '\1' 103; quorvel awire flash two.elf
    quorvel: two.elf: segments of the ELF file overlap
    [5]
    $ quorvel awire flash -U user:w:0:m -U elf32 --block-size 15
    quorvel: --block-size: flash has 69906 blocks of 15 bytes, but their numbers have 16 bits
    [2]
    $ quorvel -q awire read - -m user --format o --length 2
    022,010
    $ python3 -c 'for i in range(150000): print("S306%08X00%02X" % (0x10000000 + 4 * i, 255 - (22 + sum((4 * i).to_bytes(3, "big"))) % 256))' > many.s37
    $ quorvel -q awire flash -n many.s37
    quorvel: warning: many.s37: no end record: is the file complete?

Without erasing, bits are only cleared; erasing takes whole blocks, and only those that are touched:

    $ image other.hex 0x10020000 0x10020004 'AAAA'; image same.hex 0x10020000 0x10020004 'BBBB'
    $ quorvel -q awire flash -V other.hex; quorvel awire flash -D same.hex
    Reading 4 bytes for flash from input file same.hex
      device 0x40 != input 0x42 at addr 0x10020000 (error)
      device 0x40 != input 0x42 at addr 0x10020001 (error)
      device 0x40 != input 0x42 at addr 0x10020002 (error)
      device 0x40 != input 0x42 at addr 0x10020003 (error)
    quorvel: 4 of 4 bytes of flash differ from input file same.hex: bits are only cleared on the device, as if not erased before
    [3]
    $ quorvel -q awire flash same.hex && quorvel -q awire verify diag.hex
    $ quorvel -q awire erase && quorvel -q awire read - | tr -d '\377' | wc -c
    0
    $ quorvel -q awire read - -m user | head -c 1 | od -An -tx1
     12

Ctrl-C while a large file is written, and a gateway that goes meanwhile:

    $ mkfifo ready progress
    $ at_once() { while read -r line; do case $line in *Writing*'"percent":'[1-9]*) "$@"; break;; esac; done; cat > last; }
    $ image big.hex 0x10000000 0x10100000 'Large. '
    $ (exec quorvel -q --progress=json -g "$GATEWAY" awire flash big.hex) 2> progress & pid=$!
    $ at_once kill -INT $pid < progress; wait $pid
    [130]
    $ grep -o '"state":"[a-z]*"' last | tail -1
    "state":"failed"
    $ quorvel -q awire flash diag.hex
    $ start() { command quorvel-sim --address 127.90.4.5 --fault "$1" > ready & sim=$!; read -r -t 20 < ready; }
    $ away() { command quorvel -g 127.90.4.5 -q --timeout 300 awire "$@"; }
    $ start AWire:split
    $ command quorvel -q --progress=json -g 127.90.4.5 awire flash big.hex 2> progress & pid=$!
    $ at_once kill $sim < progress; wait $pid
    [4]
    $ sed -n 's/0x10[0-9a-f]*/ADDRESS/; /^quorvel/p' last
    quorvel: AWire gateway 127.90.4.5:5013: write ADDRESS: 0x00030000, Not connected to TCP/IP partner (the connection is lost)

Refused, damaged and lost answers, and another target:

    $ wait $sim; start 'AWire:refuse=0x25@2'
    $ away flash diag.hex
    quorvel: AWire gateway 127.90.4.5:5013: erase block 0: 0x00000E25, Failed to erase target
    [1]
    $ kill $sim; wait $sim; start 'AWire:truncate=5@2;drop@3'
    $ away read x -m user
    quorvel: AWire gateway 127.90.4.5:5013: read 0x10100000: 0x00000E26, Failed to read data from target
    [1]
    $ away flash diag.hex
    quorvel: AWire gateway 127.90.4.5:5013: read 0x10000100: 0x00040000, TCP/IP timeout occured (no answer within 300 ms)
    [4]
    $ ls x
    ls: cannot access 'x': No such file or directory
    [2]
    $ kill $sim; wait $sim
    $ quorvel awire config --address 0x80000000 --size 0x8000 --name UC3 && quorvel awire info
    target    UC3
    baud_rate 1000000
    flash     0x80000000-0x80007fff, 32768 bytes, pages of 512 bytes, erased as a whole
    user      0x80008000-0x800081ff, 512 bytes, pages of 512 bytes, erased as a whole
    $ quorvel awire config --size 0x40000 --page 0x20000; quorvel awire erase
    quorvel: flash: 262144 bytes are no whole number of pages of 131072 bytes, at most 65536
    [1]
    $ quorvel awire config --page 7
    quorvel: AWire gateway 127.90.4.1:5013: set target: 0x00000E23, SetConfig failed to read Flash or Page size
    [1]

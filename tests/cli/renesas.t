    $ quorvel() { command quorvel -g "$GATEWAY" "$@"; }
    $ image() { srec_cat -generate "$2" "$3" -repeat-string "$4" -o "$1" -intel; }

    $ quorvel renesas info
    version   SIM 1.00
    flash     0x00000000-0x0000ffff, 65536 bytes, pages of 256 bytes, erased as a whole
    $ quorvel --json renesas info --block-size 4096 --baud-index 3 --size 0x8000
    {"version":"SIM 1.00","memories":[{"name":"flash","first":0,"last":32767,"bytes":32768,"page":256,"erase_block":4096}]}

Writing in pages, from the middle of one to the middle of another:

    $ image a.hex 0x10F0 0x3210 'page by page '
    $ quorvel renesas flash a.hex
    Reading 8480 bytes for flash from input file a.hex
    Erasing flash
    Writing 8480 bytes to flash
    Writing \| #{50} \| 100% \d+\.\d\d s (re)
    Reading \| #{50} \| 100% \d+\.\d\d s (re)
    8480 bytes of flash verified
    $ quorvel -q renesas read a.bin --length 0x10000 && srec_cat a.hex -intel -fill 0xFF 0 0x10000 -o filled.bin -binary && cmp a.bin filled.bin
    $ quorvel -q renesas read - --format i --address 0x10f0 --length 8480 | srec_cmp - -intel a.hex -intel
    $ quorvel renesas checksum 0x10f0 0x10f3
    0x019d
    $ quorvel --json renesas checksum 0x10f0 0x10f3
    {"first":4336,"last":4339,"checksum":413}

Two ranges in one page, and blocks that are not touched:

    $ image low.hex 0x1000 0x1008 'low '; srec_cat low.hex -intel -offset 0x20 low.hex -intel -o two.hex -intel
    $ quorvel renesas write two.hex --block-size 0x1000
    Reading 16 bytes for flash from input file two.hex
    Erasing 1 block of flash
    Writing 16 bytes to flash, 16 bytes written, 16 verified
    $ image rest.hex 0x2000 0x3210 'page by page '
    $ quorvel renesas verify a.hex 2>&1 | tail -2
      and 3846 more
    quorvel: 3856 of 8480 bytes of flash differ from input file a.hex: bits are only set on the device, as if not written
    $ srec_cat a.hex -intel -crop 0x2000 0x3210 -o rest.hex -intel; quorvel -q renesas verify rest.hex
    $ quorvel renesas write two.hex -D
    Reading 16 bytes for flash from input file two.hex
    quorvel: Renesas gateway 127.90.4.2:5008: write page 16: 0x00000923, Renesas program the page failed
    [1]
    $ image else.hex 0x1000 0x1002 'Hz'; quorvel renesas verify else.hex
    Reading 2 bytes for flash from input file else.hex
      device 0x6c != input 0x48 at addr 0x1000 (error)
      device 0x6f != input 0x7a at addr 0x1001 (error)
    quorvel: 2 of 2 bytes of flash differ from input file else.hex: bits are set and cleared on the device
    [3]

A dry run, and what does not fit:

    $ quorvel renesas flash a.hex -n; quorvel -q renesas verify two.hex
    Reading 8480 bytes for flash from input file a.hex
    flash not erased: dry run
    8480 bytes of flash not written: dry run
    $ image large.hex 0xFFF0 0x10010 x; command quorvel -g 127.90.4.254 renesas flash large.hex
    quorvel: input file large.hex: 0x00010000-0x0001000f is outside flash (0x00000000-0x0000ffff)
    [5]
    $ quorvel renesas erase --block-size 1 --size 0x20000; quorvel renesas checksum 0 0x100 --size 256; quorvel -q renesas verify two.hex
    quorvel: --block-size: flash has 131072 blocks of 1 byte, but their numbers have 16 bits
    quorvel: LAST: the flash ends at 0x00ff, see --size
    $ quorvel renesas info --id ff
    quorvel: --id: 7 bytes in hex, such as ff:ff:ff:ff:ff:ff:ff
    [2]

A run is completed after failures and after Ctrl-C, too:

    $ quorvel --trace=trace renesas flash a.hex --id 00:00:00:00:00:00:00
    quorvel: Renesas gateway 127.90.4.2:5008: check id: 0x00000921, Renesas invalid ID
    [1]
    $ grep -o '[-]> Renesas [a-z ]*[a-zI][nD]' trace
    -> Renesas begin a run
    -> Renesas check ID
    -> Renesas end a run
    $ mkfifo ready progress
    $ command quorvel-sim --address 127.90.4.6 --fault Renesas:delay=10 > ready & sim=$!
    $ read -r -t 20 < ready
    $ srec_cat -generate 0 0x10000 -repeat-string x -o all.hex -intel
    $ (exec quorvel -q --progress=json --trace=trace -g 127.90.4.6 renesas flash all.hex) 2> progress & pid=$!
    $ while read -r line; do case $line in *Writing*'"percent":'[1-9]*) kill -INT $pid 2> /dev/null;; esac; done < progress; wait $pid
    [130]
    $ grep -c 'Renesas end a run.* result 0x00' trace
    1
    $ kill $sim; wait $sim
    $ command quorvel-sim --address 127.90.4.6 --fault Renesas:truncate=2 > ready & sim=$!
    $ read -r -t 20 < ready
    $ command quorvel -g 127.90.4.6 renesas checksum 0 1
    quorvel: Renesas gateway 127.90.4.6:5008: checksum: the answer is too short
    [4]
    $ kill $sim; wait $sim

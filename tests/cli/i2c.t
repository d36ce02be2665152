    $ quorvel() { command quorvel -g "$GATEWAY" "$@"; }
    $ start() { exec 3< <(exec timeout 120 quorvel-sim --address 127.90.2.3 --fault "$1"); sim=$!; read -r -u 3; }
    $ stop() { kill $sim; cat <&3; }
    $ stored() { until quorvel i2c transfer -y 0 "w0@$1" 2>/dev/null; do :; done; }

Devices, as i2cdetect shows them:

    $ quorvel i2c detect -y 0
         0  1  2  3  4  5  6  7  8  9  a  b  c  d  e  f
    00:                         -- -- -- -- -- -- -- -- 
    10: -- -- -- -- -- -- -- -- -- -- -- -- -- -- -- -- 
    20: -- -- -- -- -- -- -- -- -- -- -- -- -- -- -- -- 
    30: -- -- -- -- -- -- -- -- -- -- -- -- -- -- -- -- 
    40: -- -- -- -- -- -- -- -- 48 -- -- -- -- -- -- -- 
    50: 50 51 52 53 -- -- -- -- -- -- -- -- -- -- -- -- 
    60: -- -- -- -- -- -- -- -- -- -- -- -- -- -- -- -- 
    70: -- -- -- -- -- -- -- --                         
    $ quorvel --json i2c detect -y -r 0 0x40 0x50
    {"address":72}
    {"address":80}
    $ quorvel --trace i2c detect -y -q 0 0x50 0x50 2>&1 | grep -A1 -- '->' | cut -d' ' -f2-
    -> I2C write 0x0111 id 2, 2 bytes
       00000000  a0 00                                            |..|
    $ quorvel i2c detect -y 0 0x40 0x78
    quorvel: LAST out of range (0x08-0x77); -a allows it
    [2]
    $ quorvel i2c detect -l
    i2c-0\ti2c       \t127.90.2.1:5000                 \tI2C gateway (esc)

The sensor: temperature, limits, what it refuses:

    $ quorvel i2c get -y 0 0x48 0 w
    0x[02468ace]01[789ab] (re)
    $ quorvel i2c get -y 0 0x48 2 i 4 && quorvel i2c get -y 0 0110 3 c && quorvel i2c get -y 0 72
    0x4b 0x00 0x4b 0x00
    0x50
    0x50
    $ quorvel --json i2c get -y 0 0x48 2 w && quorvel --json i2c get -y 0 0x48 2 i 2
    {"address":72,"register":2,"value":75}
    {"address":72,"register":2,"bytes":"4b00"}
    $ quorvel i2c set -y -r 0 0x48 2 0x1234 w && quorvel i2c set -y -m 0x0ff0 0 0x48 2 0 w && quorvel i2c get -y 0 0x48 2 w
    Value 0x1234 written, readback matched
    0x1004
    $ quorvel i2c set -y 0 0x48 2 0x4b 0 i && quorvel i2c set -y -r 0 0x48 3
    Warning - data mismatch - wrote 0x03, read back 0x50
    [3]
    $ quorvel i2c dump -y -r 1-0x11 0 0x48 b
         0  1  2  3  4  5  6  7  8  9  a  b  c  d  e  f    0123456789abcdef
    00:    00 4b 50 XX XX XX XX XX XX XX XX XX XX XX XX     .KPXXXXXXXXXXXX
    10: XX XX                                              XX              
    $ quorvel i2c dump -y -r 2-5 0 0x48 w
         0,8  1,9  2,a  3,b  4,c  5,d  6,e  7,f
    00:           004b 0050 XXXX XXXX           
    $ quorvel --json i2c dump -y -r 2-7 0 0x48 W
    {"address":72,"first":2,"last":3,"bytes":"4b00"}
    $ quorvel i2c dump -y -r 2-2 0 0x48 b 5 2 | tail -1; quorvel i2c get -y 0 0x48 2
    00:       45                                             E             
    0x4b
    $ for mode in c i; do quorvel i2c dump -y -r 2-5 0 0x48 $mode | tail -1; done
    00:       4b 4b 4b 4b                                    KKKK          
    00:       4b 00 4b 00                                    K.K.          
    $ quorvel i2c detect -F 0 | sed -n '2,3p;$p'
    I2C                              yes
    SMBus Quick Command              yes
    10-bit addressing                no
    $ quorvel i2c get -y 0 0x47
    quorvel: I2C gateway 127.90.2.1:5000: read 1 byte from 0x47: 0x00000120, I2C NACK (No Acknowledge) (NACK: nobody answers at this address, or the data were refused)
    [1]
    $ quorvel i2c set -y 0 0x48 1 2 3 i 2>&1 | cut -c-68
    quorvel: I2C gateway 127.90.2.1:5000: write 3 bytes to 0x48, byte 3:

Questions, and arguments that are none:

    $ quorvel i2c set 0 0x50 0 1 < /dev/null
    This can confuse the bus, cause data loss and worse. It writes to 0x50, which may be an EEPROM that somebody needs.
    Continue? [y/N] quorvel: not confirmed, nothing was done; -y does not ask
    [2]
    $ echo | quorvel i2c get 0 0x48 2
    This can confuse the bus, cause data loss and worse. It reads from 0x48.
    Continue? [Y/n] 0x4b
    $ quorvel i2c get -y 0 0x48 0 ip
    quorvel: MODE: b, w, c, s, bp, wp, cp, sp or i
    [2]
    $ quorvel i2c set -y 0 0x48 2 256
    quorvel: '256': a number up to 0xff is wanted
    [2]

Messages in the language of i2ctransfer:

    $ quorvel i2c transfer -y 0 w1@0x48 2 r2 r1@0x48
    0x4b 0x00
    0x4b
    $ quorvel i2c transfer -v -y 0 w2@0x48 3 0x51 pw1 2 r2
    msg 0: addr 0x48, write, len 2, buf 0x03 0x51
    msg 1: addr 0x48, write, len 1, buf 0x02
    msg 2: addr 0x48, read, len 2, buf 0x4b 0x00
    $ quorvel i2c transfer 0 w5@0x51 0p w4 1 0xff+ w4 1- w3 010= r? < /dev/null 2>&1 | sed 1d
    msg 0: addr 0x51, write, len 5, buf 0x00 0x50 0xb0 0x71 0xee
    msg 1: addr 0x51, write, len 4, buf 0x01 0xff 0x00 0x01
    msg 2: addr 0x51, write, len 4, buf 0x01 0x00 0xff 0xfe
    msg 3: addr 0x51, write, len 3, buf 0x08 0x08 0x08
    msg 4: addr 0x51, read, len TBD
    Continue? [y/N] quorvel: not confirmed, nothing was done; -y does not ask
    $ for flags in ir1@8 sr1@8 r1 r1@7 r1@0x48x w2@8 w?@8 x; do quorvel i2c transfer -y 0 $flags; done
    quorvel: 'ir1@8': flag i (ignore NACK): the gateway ends a sequence at the first byte that is not acknowledged
    quorvel: 'sr1@8': flag s (no start): every step of the gateway begins with a start condition
    quorvel: 'r1': no address given
    quorvel: 'r1@7': invalid address: 0x08 to 0x77, or with -a 0x00 to 0x7f
    quorvel: 'r1@0x48x': invalid address: 0x08 to 0x77, or with -a 0x00 to 0x7f
    quorvel: incomplete message: 0 of 2 data bytes
    quorvel: 'w?@8': variable length not allowed with write
    quorvel: 'x': invalid direction: a description is r or w, length and @address, such as r2@0x48
    [2]
    $ quorvel --json i2c transfer -y 0 w1@0x48 2 r2@0x47 2>&1 | cut -c-71
    quorvel: I2C gateway 127.90.2.1:5000: message 1: read 2 bytes from 0x47

Blocks and packet error codes, in a memory as a witness:

    $ quorvel -q i2c eeprom write --type 24c02 --chip 1 --offset 0x20 <(printf '\x02\xaa\xbb\x40\x00')
    $ quorvel i2c get -y 0 0x51 0x20 s && quorvel i2c get -y 0 0x51 0x20 sp
    0xaa 0xbb
    0xaa 0xbb
    $ quorvel i2c get -y 0 0x51 0x20 bp
    quorvel: read from 0x51: packet error code 0xaa, but the bytes read give 0xb9
    [3]
    $ quorvel i2c get -y 0 0x51 0x24 s
    quorvel: 0x51 announces a block of 0 bytes; it may have 1 to 32
    [1]
    $ quorvel i2c transfer -y 0 w1@0x51 0x20 r? && quorvel i2c transfer -b -y 0 w1@0x51 0x20 r4 | od -An -tx1
    0x02 0xaa 0xbb
     02 aa bb 40
    $ quorvel i2c set -y 0 0x51 0x10 0x12 bp && stored 0x51 && quorvel i2c set -y 0 0x51 0x13 7 8 s && stored 0x51
    $ quorvel i2c get -y 0 0x51 0x10 i 6
    0x12 0xb7 0xff 0x02 0x07 0x08

What is not the device's fault:

    $ start 'I2C:refuse=0x21'
    $ command quorvel -g 127.90.2.3 i2c get -y 0 0x48
    quorvel: I2C gateway 127.90.2.3:5000: read 1 byte from 0x48: 0x00000121, I2C timeout occured (no response) (gateway time-out: the gateway answers, but not what is connected to it)
    [1]
    $ command quorvel -g 127.90.2.3 i2c dump -y 0 0x48 b 2>&1 | tail -1 | cut -d: -f4-5
     2 messages to 0x48: 0x00000121, I2C timeout occured (no response) (gateway time-out
    $ stop; start 'I2C:silent'
    $ command quorvel -g 127.90.2.3 --timeout 400 i2c detect -y 0
         0  1  2  3  4  5  6  7  8  9  a  b  c  d  e  f
    quorvel: I2C gateway 127.90.2.3:5000: write 0 bytes to 0x08: 0x00040000, TCP/IP timeout occured (no answer within 400 ms)
    [4]
    $ command quorvel -q -g 127.90.2.3 --timeout 60000 --trace=trace i2c eeprom read --type 24c02 partial.bin & pid=$!
    $ until test -s trace; do :; done; kill -TERM $pid; wait $pid
    [143]
    $ mkfifo answer; (exec quorvel -g "$GATEWAY" i2c set 0 0x48 2 1) < answer 2> question & pid=$!
    $ exec 4> answer; until grep -qs Continue question; do :; done; kill -INT $pid; echo y >&4; wait $pid
    [130]
    $ quorvel i2c get -y 0 0x48 2
    0x4b
    $ stop; start 'I2C:delay=20'; mkfifo progress; head -c 32768 /dev/zero > zeros.bin
    $ (exec quorvel -q --progress=json -g 127.90.2.3 i2c eeprom write --type 24c256 zeros.bin) 2> progress & pid=$!
    $ while read -r line; do case $line in *'"percent":'[1-9]*) kill -INT $pid 2> /dev/null;; esac; last=$line; done < progress; wait $pid
    [130]
    $ grep -o '"state":.*' <<< "$last"
    "state":"failed"}
    $ stop; start 'I2C:truncate=2'
    $ command quorvel -g 127.90.2.3 i2c get -y 0 0x48 2 w
    quorvel: I2C gateway 127.90.2.3:5000: 2 messages to 0x48: 0x000C0000, Quorvel TCP/IP telegram confirmation is invalid (the answer is damaged)
    [4]
    $ command quorvel -g 127.90.2.3 i2c eeprom read --type 24c256 partial.bin 2>&1 | cut -c-68; ls partial*
    Reading | -------------------------------------------------- | 0% 0.
    quorvel: I2C gateway 127.90.2.3:5000: read 256 bytes at 0x0000: 0x00
    ls: cannot access 'partial*': No such file or directory
    [2]
    $ command quorvel -g 127.90.2.3 i2c clock
    quorvel: I2C gateway 127.90.2.3:5000: get the clock: the answer is too short
    [4]
    $ stop

The clock:

    $ quorvel i2c clock 400 && quorvel i2c clock && quorvel --json i2c clock
    400000
    {"clock_hz":400000}

A memory from a file and back:

    $ seq 1 99 | head -c 240 > text && srec_cat text -binary -offset 8 -o in.hex -intel
    $ quorvel --progress none i2c eeprom write --type 24c02 --chip 1 in.hex
    240 bytes of EEPROM written
    240 bytes of EEPROM verified
    $ for file in out.hex out.s19 out.bin; do quorvel -q i2c eeprom read --size 256 --chip 1 --address 8 --length 240 $file; done
    $ srec_cmp in.hex -intel out.hex -intel && srec_cmp in.hex -intel out.s19 -motorola && cmp text out.bin
    $ printf 'Xb' > two && quorvel -q --json i2c eeprom verify --addressing 8 --chip 1 --offset 8 two 2>&1 | sed 's/,"seconds":[^,}]*//'
      device 0x31 != input 0x58 at addr 0x0008 (error)
      device 0x0a != input 0x62 at addr 0x0009 (error)
    {"operation":"verify","memory":"EEPROM","bytes":2,"differing":2,"bits_set":true,"bits_cleared":true,"mismatches":[{"address":8,"device":49,"input":88},{"address":9,"device":10,"input":98}]}
    quorvel: 2 of 2 bytes of EEPROM differ from input file two: bits are set and cleared on the device
    $ quorvel i2c eeprom write --type 24c02 --offset 0xff two
    quorvel: two: reaches to 0x0100; the last byte of the memory is 0x00ff
    [5]
    $ printf ':00000001FF' | quorvel i2c eeprom verify --type 24c02 -
    quorvel: standard input: there are no data in it
    [5]
    $ quorvel i2c eeprom read --type 24c02 --address 256 out
    quorvel: --address: the memory has the addresses 0x0000-0x00ff
    [2]
    $ quorvel i2c eeprom read --type 24c04 --chip 4 out
    quorvel: --chip: there can be 4 of this memory on a bus, 0 to 3
    [2]
    $ quorvel -q i2c eeprom write --type 24c512 --chip 7 two 2>&1 | cut -c-73
    quorvel: I2C gateway 127.90.2.1:5000: write 2 bytes at 0x0000: 0x00000125

Unknown verbs, missing arguments:

    $ quorvel spy transfer 9f
    quorvel: 'spy' is not a group or verb; did you mean spi?
    Try: quorvel --help
    [2]
    $ quorvel spi trnsfer 9f
    quorvel: 'trnsfer' is not a verb of spi; did you mean transfer?
    Try: quorvel spi --help
    [2]
    $ quorvel spi transfer 9f
    quorvel: which gateway? Give its address: -g HOST
    [2]
    $ quorvel --timeout 0 spi transfer 9f 2>&1 | head -1
    quorvel: --timeout: Value 0 not in range 1 to 2147483647
    $ quorvel --port-index 100 kinds 2>&1 | head -1
    quorvel: --port-index: Value 100 not in range 0 to 99
    $ quorvel spi config --baud-rate 10M 2>&1 | head -1
    quorvel: --baud-rate: '10M' is not a number that can stand here: decimal, 0x hexadecimal or 0 octal
    $ quorvel -g 127.90.0.1:5002 spi flash id 2>&1 | head -1
    quorvel: --gateway: '127.90.0.1:5002' is not an address alone: the port follows from the kind of gateway, see --port-index

Wrong options in order, each with the nearest right one; choices; help does not hide a wrong verb:

    $ for arguments in 'info --knd SPI --port-idx=3 -z x' 'kinds foo - bar' '--progress foo kinds' 'spi flash erase --erase-size 5' 'spi trnsfer --help'; do quorvel $arguments 2>&1 | head -1; done
    quorvel: no such option: '--knd' (did you mean --kind?), '--port-idx' (did you mean --port-index?), '-z'
    quorvel: not expected: 'foo', '-', 'bar'
    quorvel: --progress: 'foo' is none of auto, bar, json, none, plain
    quorvel: --erase-size: '5' is none of 4096, 4k, 64k, 65536, auto
    quorvel: 'trnsfer' is not a verb of spi; did you mean transfer?

What comes from outside does not drive the terminal, and JSON is ASCII:

    $ cat > gateway.py <<'END'
    > import functools, operator, socket
    > listener = socket.create_server(("127.90.0.3", 5002))
    > print(flush=True)
    > while True:
    >     with listener.accept()[0] as client:
    >         while request := client.recv(100):
    >             body = request[2:3] + bytes([request[3] | 128]) + request[4:6] + b"\0\x1b[2J\r\n\xc2\x9b\x9b\x7f\xc2\xb5"
    >             client.sendall(bytes([len(body) + 1, 0]) + body + bytes([functools.reduce(operator.xor, body)]))
    > END
    $ exec {fake}< <(exec timeout 50 python3 gateway.py); fake_gateway=$!; read -r -u "$fake"
    $ for arguments in 'status --kind SPI' scan '--json status --kind SPI'; do quorvel -g 127.90.0.3 $arguments; done; kill $fake_gateway
    .[2J\r (esc)
    ...\xc2\xb5 (esc)
     3  SPI         0   5002  .[2J.....\xc2\xb5 (esc)
    {"status":"\u001b[2J\r\n\u009b\ufffd\u007f\u00b5"}
    $ bad=$'\e[1m \xe0\x80\x80 \xed\xa0\x80 \xf4\x90\x80\x80 \xe2\x80\xae \xe2\x82\xac\n\xe2\x82'; echo > file; there() { quorvel -q -g "$GATEWAY" "$@"; }
    $ there testsystem install --send "$bad" file; there testsystem config select "$bad"; there testsystem config show
    .[1m ... ... .... . \xe2\x82\xac... (esc)
    $ there canopen sdo write 1 0x2010 -t text "$bad"; there canopen sdo read 1 0x2010 -t text
    .[1m ... ... .... . \xe2\x82\xac (esc)
    ..
    $ quorvel image info "$bad"; ln -s file "$bad"; quorvel --progress="$bad" kinds 2>&1 | head -1; echo :00000001FF > file; quorvel image info "$bad" | head -1
    quorvel: .[1m ... ... .... . \xe2\x82\xac...: No such file or directory (esc)
    quorvel: --progress: '.[1m ... ... .... . \xe2\x82\xac...' is none of auto, bar, json, none, plain (esc)
    .[1m ... ... .... . \xe2\x82\xac...: intel, 0 bytes in 0 ranges (esc)

No output that is written at once is another file of the command; nothing is opened before, and links stay links:

    $ printf 9f > in; ln in hard; ln -s in soft; ln -s new dangling
    $ for trace in in ./hard soft; do quorvel --trace=$trace spi transfer --input in; done
    quorvel: --trace=in is the same file as in
    quorvel: --trace=./hard is the same file as in
    quorvel: --trace=soft is the same file as in
    [2]
    $ quorvel --trace=dangling spi transfer 9f --output new; quorvel --trace=in renesas flash -U flash:v:in:r; quorvel --trace=in spi transfer --input - < hard; quorvel --trace=new kinds > new
    quorvel: --trace=dangling is the same file as new
    quorvel: --trace=in is the same file as in
    quorvel: --trace=in is the same file as /dev/stdin
    quorvel: --trace=new is the same file as /dev/stdout
    [2]
    $ quorvel image info - < in >> in; cat in; rm new; flock in quorvel --trace=in kinds
    quorvel: standard output is the same file as /dev/stdin
    9fquorvel: in: another log is being written to it
    [5]
    $ for output in dangling soft; do quorvel image convert --from binary --to binary hard $output; readlink $output; done; quorvel --trace=dangling kinds > soft; readlink dangling; wc -c < new
    new
    in
    new
    0

Nobody there, nobody answering:

    $ quorvel -g 127.90.0.254 spi transfer 9f
    quorvel: SPI gateway 127.90.0.254:5002: connect: 0x00020000, TCP/IP socket error (no connection: refused, or no such host)
    [4]

Data on standard output, and a full disk noticed:

    $ quorvel error 0x120 2>/dev/null
    0x00000120 I2C NACK (No Acknowledge)
    $ quorvel error 0x120 > /dev/full
    quorvel: standard output: No space left on device
    [5]
    $ for arguments in --help --version 'spi --help' 'completion bash'; do quorvel $arguments > /dev/full; echo $?; done
    quorvel: standard output: No space left on device
    5
    quorvel: standard output: No space left on device
    5
    quorvel: standard output: No space left on device
    5
    quorvel: standard output: No space left on device
    5
    $ quorvel spi --help >&-
    quorvel: standard output: Bad file descriptor
    [5]

A trace that cannot be written fails at the end, and so does one for a standard error that is closed; a connection does
not get what is meant for it:

    $ quorvel -g "$GATEWAY" --trace=/dev/full spi transfer 9f
    ff
    quorvel: /dev/full: No space left on device
    [5]
    $ (ulimit -f 0; exec quorvel -g "$GATEWAY" --trace=trace spi transfer 9f)
    ff
    quorvel: trace: File too large
    [5]
    $ quorvel -g "$GATEWAY" --trace spi transfer 9f 2>&-
    ff
    [5]
    $ quorvel -g "$GATEWAY" spi config --mode 9 2>&-
    [1]

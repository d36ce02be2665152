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

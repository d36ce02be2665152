    $ quorvel() { command quorvel -g "$GATEWAY" "$@"; }

Transfers:

    $ quorvel spi transfer 9f 0 0 0
    ff c2 20 17
    $ quorvel --json spi transfer 9f 0 0 0
    {"bytes":"ffc22017"}
    $ quorvel --trace spi transfer 9f 0 2>&1 | sed 's/^[0-9:.]* //'
    -> SPI transfer 0x0303 id 2, 2 bytes
       00000000  9f 00                                            |..|
    <- SPI transfer 0x8303 id 2, result 0x00, 3 bytes
       00000000  00 ff c2                                         |...|
    ff c2

The help, and what it says of groups in groups and of missing verbs:

    $ quorvel canopen nmt --help
    Start, stop or reset nodes
    
    Usage: quorvel [OPTIONS] canopen nmt NODE COMMAND
    
    Arguments:
      NODE                      The node, 1 to 127, or all
      COMMAND                   start, stop, pre-operational, reset-node or
                                reset-communication
    
    Options:
      -h, --help                Print this help
    
    Nodes do not confirm such a command; events shows their states.
    
    Example:
      quorvel -g 192.168.0.10 canopen nmt all start
    
    The options of the program hold here, too: see quorvel --help.
    $ quorvel spi transfer --help | grep Usage
    Usage: quorvel [OPTIONS] spi transfer [BYTES...]
    $ quorvel testsystem values set --help | grep Usage
    Usage: quorvel [OPTIONS] testsystem values set VALUE...
    $ quorvel analog watch --help | grep -e '--channels N'
      --channels N,...          Only these channels, separated by commas
    $ quorvel --help | grep -e 'Usage' -e ' HOST' -e ' MS' -A1 -e '--trace'
    Usage: quorvel [OPTIONS] [GROUP] VERB ...
    
    --
      -g, --gateway HOST        Address or name of the gateway
      --port-index N            Several gateways behind one address: TCP port 4999
    --
      --timeout MS              How long to wait for a connection or an answer
                                (default: 2000)
    --
      --trace[=FILE]            Print every telegram, decoded, on standard error or
                                into a file: --trace=FILE
      --version                 Print the version
    $ quorvel image convert --help | sed -n '/^Options/,/--from/p; /^Examples/,$p'
    Options:
      --from auto|intel|motorola|binary
    Examples:
      quorvel image convert firmware.hex firmware.bin --offset -0x8000 --fill 0xff
      quorvel image convert --to motorola --crop 0x100-0x1ff firmware.hex -
    
    The options of the program hold here, too: see quorvel --help.
    $ quorvel image
    quorvel: a verb of image is missing
    Try: quorvel image --help
    [2]
    $ quorvel spi flash reed
    quorvel: 'reed' is not a verb of spi flash; did you mean read?
    Try: quorvel spi flash --help
    [2]

The manual pages are without fault, and tell every group, verb and option:

    $ pages=$(dirname "$(command -v quorvel)")/man
    $ for page in "$pages"/*.1; do groff -man -ww -z "$page"; man --warnings -l "$page" 2>&1 >/dev/null; done
    $ grep -h '^\.TH' "$pages"/*.1 | cut -d '"' -f 6 | uniq
    quorvel [0-9.]+ (re)
    $ man() { MANWIDTH=80 command man -l "$pages/$1" | col -bx; }
    $ man quorvel-image.1 | sed -n '/^NAME/,/^DESC/p; /^   convert/,/^ *OUT /p'
    NAME
           quorvel-image - Memory image files: Intel HEX, S-records, binary
    
    SYNOPSIS
           quorvel [OPTIONS] image VERB ...
    
    DESCRIPTION
       convert
           quorvel [OPTIONS] image convert IN OUT
    
           Convert an image to another format; crop it, fill its holes, move it.
    
           IN     The image to read; - is standard input
    
           OUT    The file to write; - is standard output
    $ man quorvel.1 | grep -e '--trace\[' -e '^   completion' -e '128+n'
           --trace[=FILE]
       completion
           128+n  ended by signal n
    $ for page in "$pages"/quorvel-*.1; do group=$(basename "$page" .1)
    >     grep -q "$group (1)" <(sed 's/\\//g' "$pages/quorvel.1") || echo "quorvel(1) lacks $group"; done
    $ quorvel-sim --help | grep -o '^  *--[a-z0-9-]*' | while read -r option; do
    >     man quorvel-sim.1 | grep -qe "$option" || echo "quorvel-sim(1) lacks $option"; done

Completion in bash:

    $ quorvel completion bash > script && bash -n script && . ./script
    $ complete_at() { COMP_WORDS=(quorvel "$@") COMP_CWORD=$#; _quorvel; printf '%s ' "${COMPREPLY[@]}"; echo; }
    $ touch a.hex b.hex
    $ complete_at im
    image 
    $ complete_at -g spi image co
    convert compare 
    $ complete_at image convert --cr
    --crop 
    $ complete_at image convert --progress = b
    bar 
    $ complete_at --trace image convert --to mo
    motorola 
    $ complete_at --trace = a.
    a.hex 
    $ complete_at image info --from intel ''
    a.hex b.hex script 
    $ complete_at kinds --json --trac
    --trace 
    $ complete_at completion ''
    bash zsh fish 

The others:

    $ quorvel completion zsh > script; zsh -n script
    $ quorvel completion fish > script
    $ for line in 'spi fl' '-g can can co' 'can config --mode ' 'image info ' 'image convert --to=m' 'completion '; do
    >     fish --no-config -c "source script; complete -C 'quorvel $line'" | cut -f 1 | paste -sd ' '; done
    flash
    config
    listen loop-back normal
    a.hex b.hex script
    --to=motorola
    bash fish zsh

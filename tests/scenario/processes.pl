# Runs programs for the scenario scripts: outputs in files, an end after some time, and the signal
# that ended a program in its exit status. Loaded with `require`.
use strict;
use warnings;

# A status as a shell reports it: 128 + n for signal n.
sub status_of {
    my ($wait_status) = @_;
    return $wait_status & 127 ? 128 + ( $wait_status & 127 ) : $wait_status >> 8;
}

# Whether a signal has stopped a process.
sub is_stopped {
    my ($process) = @_;
    open my $state, '<', "/proc/$process/stat" or return 0;
    return ( <$state> // '' ) =~ /^\d+ \(.*\) T /;
}

# Why a run failed, for a status of run_command.
sub failure_shown {
    my ( $status, $timeout ) = @_;
    return defined $status ? "exit status $status" : "no end within $timeout s";
}

sub is_of_signal { return $_[0] > 128 }

sub succeeded { return defined $_[0] && $_[0] == 0 }

# Opens one of the three streams of a child: a file name, or a handle to share.
sub open_stream {
    my ( $stream, $mode, $target ) = @_;
    return open( $stream, ref $target ? "$mode&" : $mode, $target );
}

# Runs a command line and waits for it. `outputs` are file names or handles for its standard output
# and standard error. Returns the exit status, or none if it had to be ended after `timeout`
# seconds: with SIGTERM, which the lab passes on, then with SIGKILL.
sub run_command {
    my ( $timeout, $outputs, @command ) = @_;
    my $child = fork // die "cannot fork: $!\n";
    if ( $child == 0 ) {
        delete @ENV{qw(TESSEL_LAB_CALLS TESSEL_LAB_ROUTERS)};
        $ENV{LC_ALL} = 'C';
        open_stream( \*STDIN,  '<', '/dev/null' )      or exit 126;
        open_stream( \*STDOUT, '>', $outputs->{out} ) or exit 126;
        open_stream( \*STDERR, '>', $outputs->{err} ) or exit 126;
        exec { $command[0] } @command or print STDERR "cannot run $command[0]: $!\n";
        exit 127;
    }
    my $patience  = 10;
    my $timed_out = 0;
    local $SIG{ALRM} = sub { kill $timed_out++ ? 'KILL' : 'TERM', $child; alarm $patience };
    alarm $timeout;
    my $ended;
    do { $ended = waitpid $child, 0 } while $ended == -1 && $!{EINTR};
    my $wait_status = $?;
    alarm 0;
    return $timed_out ? undef : status_of($wait_status);
}

# Runs a command line. Returns what run_command returns, and the standard output and the standard
# error together.
sub output_of {
    my ( $timeout, @command ) = @_;
    open my $file, '+>', undef or die "cannot make a temporary file: $!\n";
    my $status = run_command( $timeout, { out => $file, err => $file }, @command );
    seek $file, 0, 0 or die "cannot read a temporary file: $!\n";
    local $/;
    return ( $status, scalar(<$file>) // '' );
}

# The output of a command line that must succeed.
sub output_of_success {
    my ( $timeout, @command ) = @_;
    my ( $status, $text ) = output_of( $timeout, @command );
    return $text if succeeded($status);
    die "@command: ", failure_shown( $status, $timeout ), "\n$text";
}

1;

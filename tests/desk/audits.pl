# Audits in the lab, and what tessel-report answers about the logs that they leave. Loaded with
# `require` by the scripts of this folder, which use only modules of Debian's perl-base.
use strict;
use warnings;
use Cwd            qw(abs_path);
use File::Basename qw(dirname);
use File::Path     qw(make_path remove_tree);
use File::Temp     qw(tempdir);

my $here = dirname( abs_path(__FILE__) );
require "$here/../scenario/processes.pl";

package audits;    # the functions of processes.pl are main's

use constant STATUS_LACKS_PRIVILEGE => 77;

# ---- Files ------------------------------------------------------------------------------------

sub slurp {
    my ($file) = @_;
    open my $handle, '<:raw', $file or die "cannot read $file: $!\n";
    local $/;
    return <$handle> // '';
}

sub spew {
    my ( $file, $text ) = @_;
    open my $handle, '>:raw', $file or die "cannot write $file: $!\n";
    print {$handle} $text;
    close $handle or die "cannot write $file: $!\n";
    return;
}

# A folder that is removed when the script ends, by the process that made it.
my ( $scratch, $owner );

sub scratch_folder {
    my ($keep) = @_;
    if ($keep) { main::make_path($keep); return main::abs_path($keep) }
    $scratch = main::tempdir( 'desk-tests.XXXXXX', TMPDIR => 1 );
    $owner = $$;
    return $scratch;
}

END { main::remove_tree($scratch) if $scratch && $owner == $$ }
$SIG{$_} = sub { exit 1 }
  for qw(INT TERM HUP);

# ---- The lab ----------------------------------------------------------------------------------

# The described routers with their descriptions, in the order of the lab.
sub routers {
    my ($lab) = @_;
    return map { /^(\S+) +(.*)/ ? [ $1, $2 ] : () } split /\n/, main::output_of_success( 60, "$lab/tessel-lab", 'list' );
}

# Where the lab plants faults into a router: name, layer, node, npu, bundle and object of each.
# Nothing if one does not apply.
sub places {
    my ( $lab, $router, @faults ) = @_;
    my ( $status, $text ) =
      main::output_of( 60, "$lab/tessel-lab", 'expect', $router, '--places', map { ( '--fault', $_ ) } @faults );
    return if !main::succeeded($status);
    my @places;
    for my $line ( split /\n/, $text ) {
        my %place;
        @place{qw(name layer node npu bundle object)} = map { $_ eq '-' ? '' : $_ } split /\t/, $line;
        push @places, \%place;
    }
    return @places;
}

# Audits a router with the programs of the lab's build: leaves `logs` and `console` in the folder. Dies if the lab could not run it.
sub audit {
    my ( $programs, $folder, $router, @arguments ) = @_;
    main::remove_tree("$folder/logs");
    main::make_path($folder);
    my $status = main::run_command(
        120, { out => "$folder/console", err => "$folder/stderr" },
        "$programs->{lab}/tessel-lab", 'run', $router, '--logs', "$folder/logs",
        '--host', "$programs->{lab}/tessel-host", '--library', "$programs->{lab}/libtessel.so", @arguments
    );
    return $status if defined $status && ( $status == STATUS_LACKS_PRIVILEGE || -e "$folder/logs/tessel_exception.log" );
    die "tessel-lab run $router @arguments: ", main::failure_shown( $status, 120 ), "\n", slurp("$folder/stderr");
}

# What the console counted, by the words of its table; nothing if the audit did not come to it.
sub counts {
    my ($folder) = @_;
    my $console = slurp("$folder/console");
    my %count;
    $count{$1} = $2 while $console =~ /([A-Z][A-Za-z\/ ]*?) +: (\d+)/g;
    return \%count;
}

# ---- The report -------------------------------------------------------------------------------

# Status and output of a command of tessel-report.
sub report {
    my ( $programs, $logs, @words ) = @_;
    my ( $status, $text ) = main::output_of( 300, "$programs->{build}/tessel-report", '--logs', $logs, @words );
    die "tessel-report --logs $logs @words: ", main::failure_shown( $status, 300 ), "\n$text"
      if !defined $status || main::is_of_signal($status);
    return ( $status, $text );
}

my $node_name = qr{\b\w+/\w+/CPU\d+\b};
my $sureness = qr/sure|majority|tie|two only|unknown/;

# The causes of `summary --all`, in order. Each has the title on one line, how sure the report is,
# why, the layer, the nodes that it marks as odd, what it says is next, and its whole block.
sub causes {
    my ($summary) = @_;
    my @causes;
    for my $line ( split /\n/, $summary ) {
        last if $line eq 'Bundles:';
        if ( $line =~ /^(\d+)\. (.*)/ && $1 == @causes + 1 ) {
            push @causes, { title => $2, sure => '', facts => '', odd => {}, next => '', block => '' };
        } elsif ( !@causes ) {
            next;
        } elsif ( $line =~ /^   ($sureness): / && !$causes[-1]{sure} ) {
            $causes[-1]{sure}  = $1;
            $causes[-1]{facts} = substr $line, 3;
        } elsif ( $line =~ /^   (\S.*)/ && !$causes[-1]{sure} ) {
            $causes[-1]{title} .= " $1";
        } elsif ( $line =~ /^   next: (.*)/ ) {
            $causes[-1]{next} = $1;
        } elsif ( $line =~ /^   (\S.*)/ && !%{ $causes[-1]{odd} } && $causes[-1]{block} !~ /^     /m ) {
            $causes[-1]{facts} .= " $1";
        } elsif ( $line =~ /^     (config|PI|PD|DPA|BCM) .*? (router|$node_name).*<-- odd$/ ) {
            $causes[-1]{odd}{$2}{$1} = 1;
        }
        $causes[-1]{block} .= "$line\n";
    }
    $_->{layer} = $_->{facts} =~ /\b(?:layer|layer that differs:) (config|PI|PD|DPA|BCM)\b/ ? $1 : '' for @causes;
    return @causes;
}

sub nodes_in { return $_[0] =~ /$node_name/g }

# What a cause is about: the words before the colon of its title, and the code of its first message.
sub subject_of {
    my ($cause) = @_;
    my ($subject) = $cause->{title} =~ /^([^:]+):/;
    my ($code)    = $cause->{block} =~ /^     (TC-\d+) /m;
    return join ' ', $subject // $cause->{title}, $code // '';
}

# ---- Side by side -----------------------------------------------------------------------------

# Calls `work` for each job, in `jobs` processes; each call returns texts. Returns the texts of all
# jobs, in the order of the jobs.
sub side_by_side {
    my ( $jobs, $folder, $work, @todo ) = @_;
    my @children;
    for my $worker ( 0 .. $jobs - 1 ) {
        my $child = fork // die "cannot fork: $!\n";
        if ( $child == 0 ) {
            my $is_done = eval {
                for my $n ( grep { $_ % $jobs == $worker } 0 .. $#todo ) {
                    my @texts = eval { $work->( $todo[$n] ) };
                    @texts = ( 'failed', "$@" ) if $@;
                    spew( "$folder/result.$n", join "\0", @texts );
                }
                1;
            };
            print STDERR $@ if !$is_done;
            $SIG{__DIE__} = 'DEFAULT';
            require POSIX;
            POSIX::_exit( $is_done ? 0 : 1 );
        }
        push @children, $child;
    }
    my $failed = 0;
    for my $child (@children) { waitpid $child, 0; $failed ||= $? }
    die "a process of the test failed\n" if $failed;
    return map { [ split /\0/, slurp("$folder/result.$_"), -1 ] } 0 .. $#todo;
}

1;

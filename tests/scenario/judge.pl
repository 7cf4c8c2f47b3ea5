# What an audit leaves, and whether that is the truth beside what a plain audit leaves. Used by the
# scripts that let audits fail; the runner's functions are main's. Loaded with `require`.
use strict;
use warnings;

package judge;

my $stamp    = qr/\d{4}-\d\d-\d\d \d\d:\d\d:\d\d,\d{3}/;
my @channels = qw(inconsistencies programming_error delay_delete bundle_health);
my $labels   = join '|', 'Inconsistencies', 'Stale Entries', 'BCM Programming Error', 'Delete Pending DPA Objects',
  'Info/Error/Module Exception', 'Bundle Health Status Error';
my %is_good  = map { $_ => 1 } qw(same noted counted stopped stated);

sub is_good { return $is_good{ $_[0] } }

# The six figures of the result table, or none if the report did not reach its end.
sub table_of {
    my ($console) = @_;
    return if $console !~ /^\*+Done\*+$/m;
    my %table = $console =~ m{\b($labels) *: (\d+)}g;
    return keys %table == 6 ? \%table : undef;
}

# The lines of a log and of its backup that this run has written, or those of the last run.
sub lines_of {
    my ( $out, $log, $is_last ) = @_;
    my $text = join "\n", map { main::slurp("$out/logs/tessel_$log.log$_") } '.1', '';
    $text =~ s/\A.*(?=^$stamp: Started Tessel Checker$)//ms if $is_last;
    $text = main::filtered( $text, 0 );
    return grep { $_ ne '' && !/^(?:an entry of an earlier run ?)+$/ && !/Started Tessel Checker/ } split /\n/, $text;
}

# Makes a folder for an audit behind bad_host or watched_host, with what they need in /var/log.
sub prepare {
    my ( $out, $build, @files ) = @_;
    main::remove_tree($out);
    main::make_path("$out/logs");
    for my $file ( "$build/tessel-host", map { "$main::home/$_" } 'processes.pl', @files ) {
        my $copy = "$out/logs/" . main::basename($file);
        main::copy( $file, $copy ) && chmod 0755, $copy or die "cannot copy $file: $!\n";
    }
    return;
}

# What the log of stale entries reports: their number, and their names in either form of a dump.
sub stale_lines {
    my ($out) = @_;
    my $text = main::slurp("$out/logs/tessel_stale_entries.log");
    my %names = map { $_ => 1 } $text =~ /["']Node Description["']: ?["']([^"']+)["']/g;
    return ( sort keys %names, $text =~ /^('Number of stale entries in .*')$/mg );
}

# Everything of an audit that an operator reads, after the filter; of the last one, if several have
# written the logs. `findings` maps each line that reports one to how often it stands there.
sub left_by {
    my ( $out, $is_last ) = @_;
    my %left = ( out => $out, findings => {} );
    $left{console} = main::slurp("$out/console");
    $left{stderr}  = main::slurp("$out/stderr") =~ s/^ERROR: ld\.so: object '.*\n//mgr;
    $left{table}   = table_of( $left{console} );
    for my $log (@channels) { $left{findings}{"$log: $_"}++ for lines_of( $out, $log, $is_last ) }
    $left{findings}{"stale_entries: $_"}++ for stale_lines($out);
    $left{exceptions} = join "\n", lines_of( $out, 'exception', $is_last );
    my @logs = map { "$out/logs/$_" } grep { /^tessel_(?!debug)/ } main::names_in("$out/logs");
    $left{glued} = join ', ', grep { main::slurp($_) =~ /^.+$stamp: /m } @logs;    # an entry within a line
    $left{shown} = main::filtered( main::without_preview( $left{console}, map { main::slurp($_) } @logs ), 1 );
    return \%left;
}

# The findings of one that the other lacks.
sub missing {
    my ( $from, $in ) = @_;
    return grep { ( $in->{findings}{$_} // 0 ) < $from->{findings}{$_} } sort keys %{ $from->{findings} };
}

# True if the run shows that it was not complete.
sub says_so {
    my ( $status, $left, $plain ) = @_;
    return 1 if $status != 0 && $left->{stderr} =~ /\S/;
    return 1 if $left->{console} =~ /^TESSEL Stopped: Found [1-9]|(?:^|\. )Log ERROR: |: Log init failed$/m;
    return 1 if $left->{exceptions} =~ /pprint print_object failed: cannot write/;
    return more_failures( $left, $plain ) > 0;
}

# How many failures the run counts that a plain one does not. A check that fails may also report its
# object as missing.
sub more_failures {
    my ( $left, $plain ) = @_;
    my ( $counted, $usual ) = map { ( $_->{table} // {} )->{'Info/Error/Module Exception'} // 0 } $left, $plain;
    return $counted - $usual;
}

# A finding that is counted without a line, or has a line and is not counted.
sub miscounted {
    my ($left) = @_;
    return '' if !$left->{table} || $left->{console} =~ /Log ERROR: /;
    my %lines = (
        'Inconsistencies'       => 'inconsistencies: <time>: Inconsistency',
        'BCM Programming Error' => 'programming_error: <time>: Programming Error',
    );
    for my $label ( sort keys %lines ) {
        my $logged = 0;
        $logged += $left->{findings}{$_} for grep { index( $_, $lines{$label} ) == 0 } keys %{ $left->{findings} };
        return "$label: $left->{table}{$label} counted, $logged logged" if $logged != $left->{table}{$label};
    }
    return '';
}

sub same_table {
    my ( $one, $other ) = @_;
    return 0 if !$one || !$other;
    return !grep { $one->{$_} != $other->{$_} } keys %$one;
}

# `same`: nothing differs. `noted`: only notes differ, no finding and no figure of the table.
# `counted`: the table counts failures. `stopped`: the run says that it has stopped. Any other word
# is a fault, and the second one explains it.
sub outcome {
    my ( $status, $left, $plain ) = @_;
    return ( 'crash', main::failure_shown($status) )  if main::is_of_signal($status);
    return ( 'status', main::failure_shown($status) ) if $status > 2;
    return ( 'torn', "an entry begins within a line of $left->{glued}" ) if $left->{glued} ne '';
    my @lost  = missing( $plain, $left );
    my @false = missing( $left,  $plain );
    my $is_same = $status == 0 && !@lost && !@false && same_table( $left->{table}, $plain->{table} );
    return 'same' if $is_same && !grep { $left->{$_} ne $plain->{$_} } qw(shown stderr exceptions);
    @false = grep { !/^stale_entries: 'Number of stale entries in \w+ 0'$/ && !is_cut( $_, $plain ) } @false;
    return ( 'false', "reports what is not there: $false[0]" ) if @false && @false > more_failures( $left, $plain );
    my $wrong = miscounted($left);
    return ( 'miscounted', $wrong ) if $wrong ne '' && !says_so( $status, $left, $plain );
    return 'noted' if $is_same;
    my $lacks = @lost ? "lacks $lost[0]" : 'is not as a plain one';
    return ( 'silent', "$lacks and does not say so" ) if !says_so( $status, $left, $plain );
    return $status == 0 && $left->{table} ? 'counted' : 'stopped';
}

# True for the beginning of a line of the plain run: the rest did not fit on the disk.
sub is_cut {
    my ( $line, $plain ) = @_;
    my ($log) = $line =~ /^(\w+: )/;
    return 1 if $line =~ /^\w+: [-\d :,]{0,25}$/;
    my $cut = $line =~ s/$stamp:/<time>:/r;
    return grep { index( $_, $cut ) == 0 } "$log<time>: Started Tessel Checker", keys %{ $plain->{findings} };
}

# ---- Phases -----------------------------------------------------------------------------------

# Numbered as in halted_host.c.
our @phases = ( 'Start', 'Dumping Data', 'Parsing Data', 'Bundle Consistency Check', 'Bundle Programming Check',
    'Stale Entry Check', 'Bundle Health Check', 'Overall Results' );

# How many steps a plain audit takes in each phase, by the report of halted_host.c. Dies if its phases
# are others.
sub steps_in {
    my ($out) = @_;
    my @lines = split /\n/, main::slurp("$out/logs/steps");
    my $titles = join ', ', map { s/^\d+ //r } @lines;
    die "the phases of a plain audit are $titles, and not ", join( ', ', @phases ), "\n" if $titles ne join ', ', @phases;
    return map { /^(\d+)/ } @lines;
}

# Where an audit is: in the phase whose title it has printed last.
sub phase_of {
    my ($console) = @_;
    my @begun = grep { $console =~ /^ *\Q$_\E(?:\.{5}|:)/m } @phases;
    return $begun[-1] // 'Start';
}

# ---- Results ----------------------------------------------------------------------------------

# Nothing if a plain audit ended well. Otherwise says how it ended and returns the exit status of the
# script.
sub plain_failure {
    my ( $status, $out, $timeout ) = @_;
    return if main::succeeded($status);
    if ( defined $status && $status == main::STATUS_LACKS_PRIVILEGE() ) {
        print 'cannot run here: ', main::slurp("$out/stderr");
        return $ENV{CI} ? 1 : $status;
    }
    print 'a plain audit: ', main::failure_shown( $status, $timeout ), ", see $out\n";
    return 1;
}

# What the results of another build say no longer counts: they begin with the build's mark.
sub mark_of {
    my ($build) = @_;
    my $library = main::slurp("$build/libtessel.so");
    return join "\t", 'library', length $library, unpack '%32N*', $library;
}

sub is_of_build {
    my ( $file, $build ) = @_;
    return main::slurp($file) =~ /\A(.*)$/m && $1 eq mark_of($build);
}

# A line of results without its last two words, the outcome and its place: which audit it is of.
sub audit_of { return $_[0] =~ s/\t[^\t]*\t[^\t]*\z//r }

# What a file of results says of the audits of one part, a line for each. An audit that was tried
# again has several lines, and the last one counts.
sub results_in {
    my ( $file, $part ) = @_;
    my ( @audits, %line );
    for my $line ( grep { /^\Q$part\E\t/ } split /\n/, main::slurp($file) ) {
        my $audit = audit_of($line);
        push @audits, $audit if !defined $line{$audit};
        $line{$audit} = $line;
    }
    return map { $line{$_} } @audits;
}

# Whether a line of results is of an audit that went wrong. Tools may mislead an audit, so its own
# script says whether it did wrong; delays may not change anything.
sub was_wrong {
    my ($line) = @_;
    my ( $part, $word, $last ) = ( split /\t/, $line, -1 )[ 0, -2, -1 ];
    return $last eq 'wrong' if $part eq 'tools';
    return $word ne 'same'  if $part eq 'delayed';
    return !is_good($word) && $word ne 'unreached';
}

# The audits of one part that need no repetition, and a list of those that went wrong and need one.
# Begins a new file if there is none of this build.
sub done_before {
    my ( $file, $build, $part ) = @_;
    if ( !is_of_build( $file, $build ) ) {
        main::spew( $file, mark_of($build) . "\n" );
        return {};
    }
    my @lines = results_in( $file, $part );
    my @wrong = map { audit_of($_) } grep { was_wrong($_) } @lines;
    printf "%d of the audits in %s went wrong and count as not tried\n", scalar @wrong, $file if @wrong;
    return ( { map { audit_of($_) => 1 } grep { !was_wrong($_) } @lines }, @wrong );
}

# Notes that all audits of a part have been tried, with --most. A script that ends before has no such
# note.
sub note_whole {
    my ( $file, $part, $most ) = @_;
    append( $file, join "\t", 'whole', $part, $most // 0 );
    return;
}

# In one write, so that lines of audits that end at the same time do not mix.
sub append {
    my ( $file, $line ) = @_;
    open my $handle, '>>', $file or die "cannot write $file: $!\n";
    syswrite( $handle, "$line\n" ) // die "cannot write $file: $!\n";
    close $handle or die "cannot write $file: $!\n";
    return;
}

1;

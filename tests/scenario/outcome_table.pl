# The tables of docs/RELIABILITY.md: how audits end at worst. The scripts that let audits fail hold
# their own audits against them. script/torture --write writes those of the calls, the tools and the
# disturbed audits; that of the chips' tables is written by hand. Loaded with `require`, after the
# runner.
use strict;
use warnings;

package outcome_table;

our $page = main::dirname( main::dirname( main::dirname( main::abs_path(__FILE__) ) ) ) . '/docs/RELIABILITY.md';

my @severity = qw(same noted counted stopped stated unseen misled);
my %rank     = map { $severity[$_] => $_ } 0 .. $#severity;

my %call_shown = (
    plan   => 'prepare a command',
    spawn  => 'start a command',
    wait   => 'wait for a command',
    thread => 'start a thread',
    memory => 'allocate memory',
    mmap   => 'map memory',
    limit  => 'a limit',
);

my $untried = '–';

sub rank_of { return $rank{ $_[0] } // @severity }

sub worst { return ( sort { rank_of($b) <=> rank_of($a) } @_ )[0] // $untried }

sub row { return '| ' . join( ' | ', @_ ) . " |\n" }

sub table { my ( $titles, @rows ) = @_; return join '', row(@$titles), row( map { '---' } @$titles ), @rows }

sub kind_shown { return $call_shown{ $_[0] } // "`$_[0]`" }

# Each result is [kind, place, cause, 0 or 1 for "from then on", outcome].
sub of_calls {
    my (@results) = @_;
    my %found;    # kind and place => cause => outcomes once, outcomes from then on
    for my $result (@results) {
        my ( $kind, $place, $cause, $on, $word ) = @$result;
        push @{ $found{"$kind\t$place"}{$cause}[$on] }, $word if $word ne 'unreached';
    }
    my @rows;
    for my $what ( sort keys %found ) {
        my %causes;    # the outcomes => causes
        for my $cause ( sort keys %{ $found{$what} } ) {
            my $ways = $found{$what}{$cause};
            push @{ $causes{ join ' | ', map { worst( @{ $ways->[$_] // [] } ) } 0, 1 } }, $cause;
        }
        my ( $kind, $place ) = split /\t/, $what;
        push @rows, map { row( kind_shown($kind), $place, join( ', ', @{ $causes{$_} } ), $_ ) }
          sort { $causes{$a}[0] cmp $causes{$b}[0] } keys %causes;
    }
    return table( [ 'call', 'of', 'fails with', 'once', 'from then on' ], @rows );
}

# Each result is [tool, way, outcome].
sub of_tools {
    my (@results) = @_;
    my ( %word, @tools );
    for my $result (@results) {
        my ( $tool, $way, $word ) = @$result;
        push @tools, $tool if !grep { $_ eq $tool } @tools;
        $word{$way}{$tool} = $word;
    }
    my @ways = sort keys %word;
    my @rows = map { my $tool = $_; row( "`$tool`", map { $word{$_}{$tool} // $untried } @ways ) } sort @tools;
    return table( [ 'tool', @ways ], @rows );
}

# How the page names a disturbed audit: what was done to it, and where.
sub disturbance_shown {
    my ( $what, $place ) = @_;
    return 'after one that had ended' if $place eq 'after its end';
    return $what eq 'killed' ? "after one that SIGKILL ended $place" : 'beside another one';
}

# Each result is [what was done, where, outcome].
sub of_disturbed {
    my (@results) = @_;
    my %found;
    push @{ $found{ disturbance_shown( @$_[ 0, 1 ] ) } }, $_->[2] for @results;
    return table( [ 'audit', 'outcome' ], map { row( $_, worst( @{ $found{$_} } ) ) } sort keys %found );
}

# ---- The page ---------------------------------------------------------------------------------

sub text_of_page { return main::slurp($page) }

# What the page has between two marks.
sub block {
    my ($name) = @_;
    my ($text) = text_of_page() =~ /<!-- torture: \Q$name\E -->\n(.*?)<!-- end of torture -->/s
      or die "$page has no table '$name'\n";
    return $text;
}

# The rows of a table of the page without its titles, each as its cells.
sub rows_of {
    my ($name) = @_;
    my @rows = map { [ split /\s*\|\s*/, s/^\|\s*//r ] } grep { /^\|/ } split /\n/, block($name);
    return @rows[ 2 .. $#rows ];
}

# The worst outcome that the page admits for a call, or nothing if the page does not know the call.
sub admitted_for_call {
    my ( $kind, $place, $cause, $on ) = @_;
    for my $row ( rows_of('calls') ) {
        next if $row->[0] ne kind_shown($kind) || $row->[1] ne $place;
        next if !grep { $_ eq $cause } split /, /, $row->[2];
        return $row->[ 3 + $on ] eq $untried ? undef : $row->[ 3 + $on ];
    }
    return;
}

sub admitted_for_tool {
    my ( $tool, $way ) = @_;
    my ($titles) = text_of_page() =~ /^\| tool \|(.*)\|$/m or die "$page has no table of tools\n";
    my @ways = map { s/^\s+|\s+$//gr } split /\|/, $titles;
    my ($row) = grep { $_->[0] eq "`$tool`" } rows_of('tools');
    my ($at)  = grep { $ways[$_] eq $way } 0 .. $#ways;
    my $word = defined $row && defined $at ? $row->[ 1 + $at ] : $untried;
    return $word eq $untried ? undef : $word;
}

sub admitted_for_disturbed {
    my ( $what, $place ) = @_;
    my ($row) = grep { $_->[0] eq disturbance_shown( $what, $place ) } rows_of('disturbed');
    return defined $row ? $row->[1] : undef;
}

# Returns what is wrong with an outcome beside the one that the page admits, or nothing.
sub contradiction {
    my ( $word, $admitted ) = @_;
    return "$word, but docs/RELIABILITY.md has no row for it; run script/torture --write" if !defined $admitted;
    return if rank_of($word) <= rank_of($admitted);
    return "$word, but docs/RELIABILITY.md says '$admitted' at worst";
}

sub set {
    my ( $name, $table ) = @_;
    my $text = text_of_page();
    $text =~ s/(<!-- torture: \Q$name\E -->\n).*?(<!-- end of torture -->)/$1\n$table\n$2/s
      or die "$page has no table '$name'\n";
    main::spew( $page, $text );
    return;
}

# True if the page has this table.
sub is_shown { return index( text_of_page(), "-->\n\n$_[0]\n<!-- end of torture -->" ) >= 0 }

1;

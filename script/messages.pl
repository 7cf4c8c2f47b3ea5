# What the sources can write to a log channel or to the console, for the checks that hold the
# documents and the scenarios complete. Loaded with `require`.
use strict;
use warnings;

sub slurp {
    my ($file) = @_;
    open my $handle, '<', $file or die "$0: cannot read $file: $!\n";
    local $/;
    my $text = <$handle>;
    close $handle;
    return $text // '';
}

sub names_below {
    my ($folder) = @_;
    opendir my $handle, $folder or die "$0: cannot read $folder: $!\n";
    my @names = sort grep { !/^\./ } readdir $handle;
    closedir $handle;
    return @names;
}

sub sources_below {
    my ($folder) = @_;
    return map { -d "$folder/$_" ? sources_below("$folder/$_") : /\.(?:cpp|h)$/ ? "$folder/$_" : () } names_below($folder);
}

# What an operator can meet: findings, notes, and the text of a handler, which begins with the
# failure's own words.
my $message = qr/Inconsistency \{\}|Programming Error ?\{\}|^(?:INFO|ERROR|PARSE-ERROR|Log ERROR|DEBUG): |^\{\}: |print_object failed|skipping TESSEL|Number of stale|^TESSEL Stopped/;

# Neighbouring literals are one text, as the compiler sees them.
sub texts_of {
    my ($source) = @_;
    my @texts;
    my $line = 1;
    my $at   = 0;
    $source =~ s{^[ \t]*(?://.*|#include.*)$}{}mg;
    my $literal = qr/"(?:[^"\\\n]|\\.)*"/;
    while ( $source =~ /($literal(?:\s*$literal)*)/g ) {
        my $start = $-[1];
        $line += ( substr( $source, $at, $start - $at ) =~ tr/\n// );
        $at = $start;
        my $text = join '', $1 =~ /"((?:[^"\\\n]|\\.)*)"/g;
        $text =~ s/^(?:\\n)+|(?:\\n)+$//g;
        $text =~ s/\\(["\\])/$1/g;
        push @texts, [ $line, $text ];
    }
    return @texts;
}

sub is_message {
    my ($text) = @_;
    return $text =~ $message && $text =~ /[A-Za-z]{3}/;
}

# Line and text of each message of a source.
sub messages_of {
    my ($file) = @_;
    return grep { is_message( $_->[1] ) } texts_of( slurp($file) );
}

sub documented_messages { return slurp('docs/FINDINGS.md') =~ /`([^`\n]+)`/g }

# A pattern of what a message can become: each {} any text, a part that can be empty included.
sub pattern_of {
    my ( $text, $any ) = @_;
    return join $any // '.*', map { quotemeta } split /\{\}/, $text, -1;
}

1;

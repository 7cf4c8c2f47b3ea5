# Extracts the messages that the sources can write to a log channel or to the console, for the
# checks that the documents and the scenarios are complete. Loaded with `require`.
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
    return map { -d "$folder/$_" ? sources_below("$folder/$_") : /\.(?:cpp|h|c)$/ ? "$folder/$_" : () } names_below($folder);
}

# The functions that show something to an operator, and the position of the text in their arguments.
my %teller = (
    ( map { $_ => 0 } qw(logger pprint print note_for_support say_and_go_on log_and_count count_and_log leave_out_of_run) ),
    ( map { $_ => 0 } qw(inconsistency report_programming_error) ),
    report_finding => 2,
);

# Calls that pass on a text from elsewhere: from the caller, a file or a tool.
my %hands_on = map { $_ => 1 } (
    'src/base/findings.cpp: message',
    'src/base/findings.h: fmt::format(form, ++counted, parts...)',
    'src/base/findings.h: form',
    'src/base/logs.cpp: text',                                      # of note_for_support
    'src/hygiene/bundle_health.cpp: bdl_error',                     # the bundle manager's report
    'src/parse/dpa_objects.cpp: fmt::format("{}, {}", note, nodename)',
    'src/report/results.cpp: lines[at]',                            # of a log
    'src/report/results.cpp: path',
    'src/report/results.cpp: fmt::format("{:*^70}", "Done")',
    'src/report/results.cpp: fmt::format("{}\n\n", LOG_FILE_DEBUG)',
    'src/report/results.cpp: fmt::format("{:27} : {:<8} {:28} : {}", first.label, first.number, second.label, second.number)',
);

# Texts that frame a log or the report and are not messages.
my %is_frame = map { $_ => 1 } (
    'Done', 'Not Done', 'Overall Results:', 'Logs:', 'Logs Preview:',
    'Logs: \n/var/log/tessel_exception.log\n/var/log/tessel_debug.log',
    'Started Tessel Checker', 'Start of {} entries...', 'End of {} entries...',
);

my $literal = qr/"(?:[^"\\\n]|\\.)*"/;

# The text of string literals that the compiler joins.
sub joined {
    my ($literals) = @_;
    my $text = join '', $literals =~ /"((?:[^"\\\n]|\\.)*)"/g;
    $text =~ s/^(?:\\n)+|(?:\\n)+$//g;
    $text =~ s/\\(["\\])/$1/g;
    return $text;
}

sub without_comments {
    my ($source) = @_;
    $source =~ s{^[ \t]*(?://.*|#include.*)$}{}mg;
    return $source;
}

sub texts_of {
    my ($source) = @_;
    return map { joined($_) } without_comments($source) =~ /($literal(?:\s*$literal)*)/g;
}

# The arguments of a call whose opening bracket is just before $at.
sub arguments_at {
    my ( $source, $at ) = @_;
    my ( $depth, @arguments ) = ( 0, '' );
    pos($source) = $at;
    while ( $source =~ /\G(R"\(.*?\)"|$literal|'(?:[^'\\]|\\.)+'|.)/gs ) {
        my $part = $1;
        if ( $part eq ',' && $depth == 0 ) { push @arguments, ''; next }
        $depth++ if $part =~ /^[({\[]$/;
        $depth-- if $part =~ /^[)}\]]$/;
        last if $depth < 0;
        $arguments[-1] .= $part;
    }
    return map { s/\s+/ /gr =~ s/^ | $//gr } @arguments;
}

# [line, arguments] of each call of a function. A name after a type is a declaration, not a call.
sub calls_of {
    my ( $source, $name ) = @_;
    my @calls;
    while ( $source =~ /(?<!int )(?<!void )(?<!value )\b\Q$name\E\(/g ) {
        my $at = $+[0];
        push @calls, [ 1 + ( substr( $source, 0, $at ) =~ tr/\n// ), arguments_at( $source, $at ) ];
    }
    return @calls;
}

# The texts that an argument can be: a literal, a literal with its braces filled, or one of two.
sub texts_in {
    my ($argument) = @_;
    my ($form) = $argument =~ /^fmt::format\(/ ? arguments_at( $argument, $+[0] ) : $argument;
    return grep { /[A-Za-z]{3}/ } map { joined($_) } $form =~ s/\{:[^}]*\}/{}/gr =~ /($literal(?: ?$literal)*)/g;
}

# What the calls of a function in a source pass at one position: literals, or constants of that
# source.
sub words_for {
    my ( $source, $function, $place ) = @_;
    my @given = map { $_->[ 1 + $place ] // '' } calls_of( $source, $function );
    my %constant = $source =~ /\bconstexpr std::string_view (\w+) = "([^"]*)";/g;
    return grep { defined } map { /^"(.*)"$/ ? $1 : $constant{$_} } @given;
}

# For a check that several layers share, the caller passes the layer's name. Maps the message to
# [the position of the braces for the layer, the names that callers pass].
sub layers_of_shared_messages {
    my @sources = map { without_comments( slurp($_) ) } sources_below('src');
    my %layers;
    for my $source (@sources) {
        while ( $source =~ /^int (\w+)\(([^)]*)\) \{\n(.*?)^\}/gms ) {
            my ( $function, $parameters, $body ) = ( $1, $2, $3 );
            my @names   = map { /(\w+)\s*$/ } split /,/, $parameters;
            my ($given) = grep { $names[$_] eq 'layer' } 0 .. $#names or next;
            my %words   = map { $_ => 1 } map { words_for( $_, $function, $given ) } @sources;
            for my $call ( calls_of( $body, 'inconsistency' ) ) {
                my ( undef, $form, @parts ) = @$call;
                my ($place) = grep { $parts[$_] eq 'layer' } 0 .. $#parts;
                $layers{ joined($form) } = [ 1 + $place, sort keys %words ] if defined $place;
            }
        }
    }
    return \%layers;
}

my $layers;

# The message once for each layer that it can name.
sub in_each_layer {
    my ($message) = @_;
    $layers //= layers_of_shared_messages();
    my ( $place, @words ) = @{ $layers->{$message} // [] };
    return $message if !@words;
    my @pieces = split /\{\}/, $message, -1;
    my $head   = join '{}', @pieces[ 0 .. $place ];
    my $tail   = join '{}', @pieces[ $place + 1 .. $#pieces ];
    return map { "$head$_$tail" } @words;
}

my %handed_on;

# Line and text of each message of a source, without framing texts.
sub messages_of {
    my ($file) = @_;
    my $source = without_comments( slurp($file) );
    my @messages;
    for my $name ( sort keys %teller ) {
        for my $call ( calls_of( $source, $name ) ) {
            my ( $line, @arguments ) = @$call;
            my $argument = $arguments[ $teller{$name} ] // '';
            my @texts    = texts_in($argument);
            push @messages, map { [ $line, $_ ] } grep { !$is_frame{$_} } @texts;
            next if @texts;
            die "$file:$line: this call contains no text; if its text comes from elsewhere, add it to %hands_on in script/messages.pl: $name($argument)\n"
              if !$hands_on{"$file: $argument"};
            $handed_on{"$file: $argument"} = 1;
        }
    }
    return sort { $a->[0] <=> $b->[0] } @messages;
}

# Call after all sources have been read: the entries of %hands_on that no source needs any more.
sub needless_hand_ons { return grep { !$handed_on{$_} } sort keys %hands_on }

# [line, text] of the messages that docs/FINDINGS.md explains: the terms of definition lists, and
# the first column of the tables of notes, messages and lines.
sub documented_messages {
    my @lines = split /\n/, slurp('docs/FINDINGS.md');
    my ( @messages, $in_table );
    for my $at ( 0 .. $#lines ) {
        my $next = $lines[ $at + 1 ] // '';
        $in_table = $1 if $next =~ /^\| ---/ && $lines[$at] =~ /^\| (\w+) \|/;
        $in_table = undef if $lines[$at] eq '';
        my $is_row  = $in_table && $in_table =~ /^(?:note|message|line)$/ && $lines[$at] =~ /^\| `([^`]+)`/;
        my $is_term = !$is_row && $next =~ /^: / && $lines[$at] =~ /^`([^`]+)`(?: TC-\d{3})?$/;
        push @messages, [ $at + 1, $1 ] if $is_row || $is_term;
    }
    return @messages;
}

# A pattern of everything that a message can become: each {} is any text; a part that may be empty
# is optional.
sub pattern_of {
    my ( $text, $any ) = @_;
    return join $any // '.*', map { quotemeta } split /\{\}/, $text, -1;
}

1;

# Objects, closures and recursion: expressions parsed and computed, and nested data written and read back.
use strict;
use warnings;
package Parser;
sub new { my ($class, $text) = @_; return bless { text => $text, memory => {} }, $class }
sub sum {
    my $self = shift;
    my $value = $self->product;
    while ($self->{text} =~ /\G\s*([-+])/gc) { my $sign = $1; $value += $self->product * ($sign eq '+' ? 1 : -1) }
    return $value;
}
sub product { my $self = shift; my $value = $self->atom; $value *= $self->atom while $self->{text} =~ /\G\s*\*/gc; return $value }
sub atom {
    my $self = shift;
    return $1 if $self->{text} =~ /\G\s*(\d+)/gc;
    die 'expression' unless $self->{text} =~ /\G\s*\(/gc;
    my $value = $self->sum;
    $self->{text} =~ /\G\s*\)/gc or die 'unclosed';
    return $self->{memory}{$value} = $value;
}
package main;
sub written {
    my $data = shift;
    return '[' . join(',', map { written($_) } @$data) . ']' if ref $data eq 'ARRAY';
    return '{' . join(',', map { "\"$_\":" . written($data->{$_}) } sort keys %$data) . '}' if ref $data eq 'HASH';
    return $data;
}
my @steps = map { my $n = $_; sub { ($_[0] * 31 + $n) % 1009 } } 1 .. 7;
my $state = 1;
my %shelf;
for my $round (1 .. 35) {
    $state = $_->($state) for @steps;
    my $value = eval { Parser->new("$state+(2*(3+$round)-4)*(5-($round*$state))")->sum };
    push @{ $shelf{ $state % 17 }{list} }, $value, pack('nV', $state, $round), { round => $round, hex => sprintf '%04x', $state };
    my $text = substr written(\%shelf), 0, 400;
    local $_ = reverse $text;
    tr/0-9/a-j/;
    $shelf{ $state % 17 }{sum} = unpack '%32C*', $_;
    splice @{ $shelf{ $state % 17 }{list} }, 0, 3 if @{ $shelf{ $state % 17 }{list} } > 12;
}
print "$_ $shelf{$_}{sum}\n" for sort { $a <=> $b } keys %shelf;

# Words of a text, counted and listed; its long lines, folded.
use strict;
use warnings;
my (%count, @long);
while (my $line = <>) {
    $line =~ s/[A-Z]<([^<>]*)>/$1/g;
    next if $line =~ /^=/;
    $count{lc $1}++ while $line =~ /([a-z']+)/gi;
    push @long, $line if length $line > 70;
}
my @words = sort { $count{$b} <=> $count{$a} || $a cmp $b } keys %count;
printf "%-20s %6d\n", $_, $count{$_} for @words[0 .. 50];
for my $text (@long) {
    (my $folded = $text) =~ s/(.{1,40})\s/$1\n/g;
    print join("\n  ", split /\n/, $folded), "\n";
}

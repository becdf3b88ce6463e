# layout.pl PATTERN DUMP: the order of fields and of virtual functions of the classes whose whole name matches, out of
# clang's dump of record and vftable layouts. Sizes and offsets are left out: they are those of another standard
# library. A class Probe::A__B stands for A::B.
use strict;
use warnings;

my ($pattern, $dump) = @ARGV;
my (%blocks, $block, $of_fields);

sub begin {
    my ($title) = @_;
    $block = exists $blocks{$title} ? undef : ($blocks{$title} = []);
}

sub begin_slots {
    my @names = map { s/^Probe::(\w+)$/$1 =~ s{__}{::}gr/er } @_;
    my ($table, $class) = @names[0, -1];
    return unless $class =~ /^(?:$pattern)$/;
    begin("$class, virtual functions" . ($table eq $class ? '' : " as $table"));
}

open my $in, '<', $dump or die "$dump: $!";
while (my $text = <$in>) {
    if ($text =~ /^\*\*\* Dumping AST Record Layout/) {
        undef $block;
        my ($class) = <$in> =~ /^\s*0 \| (?:class|struct) (.+?)(?: \(empty\))?$/;
        begin($class) if defined $class and $class =~ /^(?:$pattern)$/;
        $of_fields = 1;
    } elsif ($text =~ /^VFTable for '/) {
        undef $block;
        begin_slots($text =~ /'([^']+)'/g);
        $of_fields = 0;
    } elsif ($text =~ /^\s*$/) {
        undef $block;
    } elsif (!$block) {
        next;
    } elsif ($of_fields) {
        # Three blanks: a member of the class itself, not of a member.
        push @$block, $1 if $text =~ /^\s*[\d:-]+ \|   (\S.*)$/;
    } else {
        # The first entry is the type's own description.
        push @$block, $2 =~ s/Probe::\w+::~\w+/~/r if $text =~ /^\s*(\d+) \| (.*\S)/ and $1 > 0;
    }
}
for my $title (sort keys %blocks) {
    my @lines = grep { !/^Probe::|\(primary base\).*Probe/ } @{$blocks{$title}};
    next unless @lines;
    print "$title\n";
    print "    $_\n" for @lines;
    print "\n";
}

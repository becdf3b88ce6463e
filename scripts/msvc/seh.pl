# seh.pl FILE: reads the compiler's intermediate code and reports functions that hold both __try and objects with
# destructors, which Visual C++ refuses (C2712).
use strict;
use warnings;

my ($function, $guarded, $failed) = ('', 0, 0);
while (my $text = <>) {
    if ($text =~ /^define .*?\@("[^"]+"|[\w.\$]+)\(/) {
        $function = $1 =~ s/"//gr;
        $guarded = $text =~ /personality ptr \@_except_handler[34]/;
        next;
    }
    if ($guarded and $text =~ /(?:call|invoke) .*\@"\?\?(?:1|_[DEG])/) {
        print "error: C2712: $function has __try and objects to destroy\n";
        ($guarded, $failed) = (0, 1);
    }
}
exit $failed;

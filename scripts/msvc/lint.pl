# lint.pl FILE FOLDER... : reads a preprocessed source whose directives were kept, and reports words that clang takes
# in Microsoft's dialect although Visual C++ does not. Only lines of FILE and of files below a FOLDER count.
use strict;
use warnings;

my ($main, @folders) = @ARGV;
my $refused = qr{\b(
    __attribute__ | __typeof__ | __extension__ | __PRETTY_FUNCTION__ | __int128(?:_t)? | __restrict__ | __asm__ |
    __sync_\w+ | __atomic_\w+ | __cxa_\w+ | __cxxabiv1 | abi::__\w+ |
    __builtin_(?!offsetof|va_|FILE|LINE|FUNCTION|COLUMN|source_location|bit_cast|is_constant)\w+
)}x;
my ($file, $line, $failed, %seen) = ('', 0, 0);
while (my $text = <STDIN>) {
    if ($text =~ /^# (\d+) "([^"]*)"/) {
        ($line, $file) = ($1 - 1, $2);
        next;
    }
    ++$line;
    next unless $file eq $main or grep { index($file, $_) == 0 } @folders;
    $text =~ s/"(?:\\.|[^"\\])*"/""/g;
    $text =~ s{//.*}{};
    while ($text =~ /$refused/g) {
        next if $seen{"$file:$line:$1"}++;
        print "$file:$line: error: Visual C++ has no $1\n";
        $failed = 1;
    }
}
exit $failed;

# uuid.pl HEADER... : writes to uuid/ those Windows headers whose interfaces have no identifier in Microsoft's dialect,
# with one. Where a header names none, a made-up value stands in: __uuidof compiles, its value means nothing here.
use strict;
use warnings;

sub made_up {
    my ($name) = @_;
    my $hash = 2166136261;
    $hash = (($hash ^ $_) * 16777619) & 0xffffffff for unpack 'C*', $name;
    return sprintf 'f0000000-0000-0000-%04x-0000%08x', length $name, $hash;
}

sub declared {
    my ($type, @parts) = split /\s*,\s*/, $_[0];
    my @values = map { /^(?:0x)?([0-9a-f]+)$/i ? hex $1 : -1 } @parts;
    return "/* no identifier: $type */" if @parts != 11 or grep({ $_ < 0 } @values) or $type !~ /^\w+$/;
    return sprintf 'struct __declspec(uuid("%08x-%04x-%04x-%02x%02x-%02x%02x%02x%02x%02x%02x")) %s;', @values, $type;
}

local $/;
for my $path (@ARGV) {
    my $name = $path =~ s{.*/}{}r;
    next if $name eq '_mingw.h' or $name eq 'rpcndr.h';
    open my $in, '<', $path or next;
    my $text = <$in>;
    my $before = $text;
    my %known = map { $_ => 1 }
        $text =~ m{__CRT_UUID_DECL\s*\(\s*(\w+)}g, $text =~ m{MIDL_INTERFACE\s*\("[^"]*"\)\s*(\w+)}g;
    my %creatable = map { $_ => 1 } $text =~ m{\bCLSID_(\w+)\s*[;,]}g;
    $text =~ s{^[ \t]*__CRT_UUID_DECL\s*\(\s*([^\)]*?)\s*\)}{declared($1)}gem;
    $text =~ s{^([ \t]*)(?:struct|interface)[ \t]+([A-Z]\w+)[ \t]*:[ \t]*(?=public[ \t]+I[A-Z])}{
        $known{$2} ? $& : "$1struct __declspec(uuid(\"" . made_up($2) . "\")) $2 : "}gem;
    $text =~ s{^([ \t]*)class[ \t]+(\w+);}{
        $known{$2} || !$creatable{$2} ? $& : "$1class __declspec(uuid(\"" . made_up($2) . "\")) $2;"}gem;
    next if $text eq $before;
    open my $out, '>', "uuid/$name" or die "uuid/$name: $!";
    print $out "#pragma clang system_header\n", $text;
}

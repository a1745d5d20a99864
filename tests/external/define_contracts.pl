# Prints a definition of every function, member function and object that the contract headers
# declare: the C functions and objects at file level, and the non-virtual members of each class.
undef $/;
for my $file (@ARGV) {
  open(my $in, '<', $file) or die "$file: $!";
  my $text = <$in>;
  $text =~ s{/\*.*?\*/}{}gs;
  $text =~ s{//[^\n]*}{}g;
  print "$1$2($3) { std::abort(); }\n" while $text =~ /^((?:const\s+)?\w+[\s*]+)(\w+)\(([^;{)]*)\);/mg;
  print "$1 = {};\n" while $text =~ /^extern\s+([^"(;\n]+);/mg;
  while ($text =~ /^class\s+(\w+)[^{;]*\{(.*?)^\};/msg) {
    my ($class, $body) = ($1, $2);
    while ($body =~ /^\s+(?:static\s+)?([^\n();=]*?[\s*&])(\w+)\(([^()]*)\)(\s*const)?;$/mg) {
      next if $1 =~ /\bvirtual\b/;
      print "$1$class\::$2($3)$4 { std::abort(); }\n";
    }
  }
}

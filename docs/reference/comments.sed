# Shows Doxygen the plain comments of a header as documentation.

# What only the compiler and the linters read.
s,  // NOLINT.*,,
/^ *\/\/ NOLINT/d

# Comments on separate lines, whose backslashes are not commands; then those after code.
/^ *\/\//s,\\,\\\\,g
s,^( *)//( |$),\1///\2,
s,([^ ]) +// ,\1  ///< ,

# The comment at the head describes the file.
1s,^,/// \\file\n,

# Copying that is ruled out needs no text.
/= delete;$/d

# Marks the headers' plain comments for Doxygen: the first of a file describes the file, one that
# stands before a declaration describes it, one behind a member describes that member. Headings
# ("/* ---- Output ---- */") and remarks behind a brace or a directive describe nothing.
1s|^/\*|/** @file|
/^ *\/\* ----/b
s|^\( *\)/\* |\1/** |
/^ *[#}\/]/b
/^ \*/b
s|\([^ ]\)  *\/\* |\1 /**< |

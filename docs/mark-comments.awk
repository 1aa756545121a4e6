# Marks the headers' plain comments for Doxygen: the first of a file describes the file, a heading
# ("/* ---- Output ---- */") begins a section, any other that stands before a declaration describes
# it, and one behind a member describes that member.  Remarks behind a brace or a directive describe
# nothing.

function end_section() {
    if (in_section) {
        print "/** @} */"
    }
    in_section = 0
}

NR == 1 {
    sub(/^\/\*/, "/** @file")
}

/^\/\* ----/ {
    end_section()
    in_section = 1
    in_heading = !/\*\/$/
    gsub(/^\/\* -+ | -+( \*\/)?$/, "")
    print "/** @name " $0 (in_heading ? "" : "\n * @{ */")
    next
}

in_heading && sub(/ \*\/$/, "") {
    in_heading = 0
    print $0 "\n * @{ */"
    next
}

# The functions of C end here.
/^#ifdef __cplusplus/ {
    end_section()
}

/^ *\/\* / {
    sub(/\/\* /, "/** ")
}

!/^ *([#}\/]|\* )/ {
    sub(/ +\/\* /, " /**< ")
}

{
    print
}

END {
    end_section()
}

# Turns public headers and pages into what Doxygen understands. Each line stays one line, so that its warnings name the
# right one.

FNR == 1 {
    is_header = FILENAME ~ /\.h$/
    at_the_top = is_header
    include = FILENAME
    sub(/.*\//, "", include)
    sub(/\.h$/, "", include)
}

# What stands above "#pragma once" is about the file.
/^#pragma once/ { at_the_top = 0 }
at_the_top && FNR == 1 { sub(/^\/\//, "/// @about") }
at_the_top && FNR > 1 { sub(/^\/\//, "///") }

# A class is shown with the include that people write.
is_header && /^class VEL_EXPORT / { $0 = "/** @headerfile " include ".h <" include "> */ " $0 }

# "Thread:   any." begins a part of its own.
is_header && match($0, /^ *\/\/\/ (Default|Precondition|Thread|Result|Errors|Ends the process|Do not): +/) {
    label = substr($0, 1, RLENGTH)
    text = substr($0, RLENGTH + 1)
    sub(/: +$/, "", label)
    sub(/\/\/\/ /, "/// @part{", label)
    $0 = label "} " text
}

# A link from a page to a file or folder that is not in the reference keeps its text only.
!is_header { $0 = with_links_to_pages_only($0) }

{ print }

function with_links_to_pages_only(line,    before, link, middle, target) {
    before = ""
    while (match(line, /\[[^][]*\]\([A-Za-z0-9_.\/-]*[.\/][A-Za-z0-9_.\/-]*\)/)) {
        link = substr(line, RSTART, RLENGTH)
        middle = index(link, "](")
        target = substr(link, middle + 2, RLENGTH - middle - 2)
        if (target !~ /\.(md|svg)$/)
            link = substr(link, 2, middle - 2)
        before = before substr(line, 1, RSTART - 1) link
        line = substr(line, RSTART + RLENGTH)
    }
    return before line
}

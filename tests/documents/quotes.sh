#!/bin/sh
# quotes.sh DOCUMENT PROGRAM...
#
# All code of the document is in one of the programs, which are compiled, except for white space. The
# code is, in a .md file, each block marked cpp or cmake, and in a header each paragraph of the example
# at its top.

document=$1
shift
exec awk -v document="$document" '
    function squeezed(text) {
        gsub(/[ \t\n]+/, " ", text)
        return text
    }

    function end_quote() {
        if (quote != "") {
            ++quotes
            found = 0
            for (program in programs)
                found += index(programs[program], squeezed(quote)) > 0
            if (!found) {
                print document ": in none of the programs:\n" quote
                failed = 1
            }
        }
        quote = ""
    }

    FILENAME != document { programs[FILENAME] = programs[FILENAME] $0 "\n"; next }
    FNR == 1 { for (program in programs) programs[program] = squeezed(programs[program]) }

    document ~ /\.h$/ && /^#include/ { exit }
    document ~ /\.h$/ { if (sub(/^\/\/\/     /, "")) quote = quote $0 "\n"; else end_quote(); next }

    /^```$/ { end_quote(); inside = 0 }
    inside { quote = quote $0 "\n" }
    /^```(cpp|cmake)$/ { inside = 1 }

    END {
        end_quote()
        if (!quotes)
            print document ": there is no code in it"
        exit failed || !quotes
    }
' "$@" "$document"

# Writes the page's sources as string constants into a header: cmake -D SOURCES=FOLDER -D HEADER=FILE
# -P embed.cmake. Scripts go into one another's scope, in the order in which they need each other.
set(scripts format.js data.js histogram.js timeline.js page.js)

file(READ ${SOURCES}/report.html markup)
file(READ ${SOURCES}/report.css style)
set(script "'use strict';\n")
foreach(name IN LISTS scripts)
    file(READ ${SOURCES}/${name} text)
    string(APPEND script "${text}")
endforeach()
file(WRITE ${HEADER} "// Made by replay/page/embed.cmake.\n#pragma once\n\n"
        "inline constexpr char kPageMarkup[] = R\"~page~(${markup})~page~\";\n"
        "inline constexpr char kPageStyle[] = R\"~page~(${style})~page~\";\n"
        "inline constexpr char kPageScript[] = R\"~page~(${script})~page~\";\n")

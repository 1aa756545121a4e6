# Puts the page together: style and scripts into the document, the document into a unit of C++.
#   cmake -D FOLDER=… -D SCRIPTS=… -D OUTPUT=… -P Page.cmake
# For tests and editors the scripts are modules; in the page they become one, in the order of
# SCRIPTS.
file(READ ${FOLDER}/index.html page)
file(READ ${FOLDER}/style.css style)
set(script "")
string(REPLACE "," ";" scripts "${SCRIPTS}")
foreach(name IN LISTS scripts)
    file(READ ${FOLDER}/${name} text)
    string(REGEX REPLACE "(^|\n)import [^\n]*" "\\1" text "${text}")
    string(REGEX REPLACE "(^|\n)export " "\\1" text "${text}")
    string(APPEND script "${text}")
endforeach()
string(REPLACE "/*STYLE*/" "${style}" page "${page}")
string(REPLACE "/*SCRIPT*/" "${script}" page "${page}")
file(WRITE ${OUTPUT} "namespace lab::serve {\n\nextern const char* const kPageHtml;\n\
const char* const kPageHtml = R\"ravo_page(${page})ravo_page\";\n\n} // namespace lab::serve\n")

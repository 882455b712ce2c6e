# Writes the language file shipped beside the program (TvEject_lng.xml) from one file per language
# in packaging/lang/ ("de.xml" holds <de name="Deutsch">...</de>).
#
#   cmake -DLANG_DIR=packaging/lang -DCATALOGUE=src/base/catalogue.cpp -DOUTPUT=TvEject_lng.xml
#         -P cmake/language_file.cmake
#
# The program speaks the language of the element named exactly by the user's code ("de-AT"); the
# two letters only find the file. So each language is written once under its two letters (which
# a "UserLanguage" of "de" asks for) and once more under every code of that language in the
# program's locale catalogue, all with the same texts. A code without its element would be
# filled with the built-in French texts, which the program then saves into the file for good.
#
# The output is laid out as the program's own writer lays out files (tabs, CR LF, no byte-order
# mark, no line break at the end), so a later save changes only what a lookup added.

foreach(input LANG_DIR CATALOGUE OUTPUT)
  if(NOT DEFINED ${input})
    message(FATAL_ERROR "language_file.cmake needs -D${input}=...")
  endif()
endforeach()

# Every language code of the catalogue, in catalogue order: the first field of each row
# u"/de-AT|0c07|German|Austria".
file(READ "${CATALOGUE}" catalogue)
string(REGEX MATCHALL "u\"/[^|\"/]+\\|" rows "${catalogue}")
set(codes "")
foreach(row IN LISTS rows)
  string(REGEX REPLACE "^u\"/([^|]+)\\|$" "\\1" code "${row}")
  list(APPEND codes "${code}")
endforeach()
list(LENGTH codes count)
if(count LESS 100)
  message(FATAL_ERROR "${CATALOGUE}: only ${count} language codes found")
endif()

file(GLOB sources LIST_DIRECTORIES false "${LANG_DIR}/*.xml")
list(SORT sources)
if(NOT sources)
  message(FATAL_ERROR "no language in ${LANG_DIR}")
endif()

set(document "<Languages>")
foreach(source IN LISTS sources)
  get_filename_component(language "${source}" NAME_WE)
  file(READ "${source}" text)
  # Quoted throughout: the texts hold ";" (in "&apos;"), which would split an unquoted value.
  string(REPLACE "\r" "" text "${text}")
  string(REGEX REPLACE "\n+$" "" text "${text}")
  if(NOT language MATCHES "^[a-z][a-z]$" OR NOT text MATCHES "^<${language} name=\"[^\"]+\">\n"
     OR NOT text MATCHES "\n</${language}>$")
    message(FATAL_ERROR
      "${source}: expected one element <${language} name=\"...\"> ... </${language}>, "
      "named by the two letters of the file's name")
  endif()
  # One level deeper than in its own file, each line ended as the writer ends lines.
  string(REPLACE "\n" "\r\n\t" text "${text}")
  set(names "${language}")
  foreach(code IN LISTS codes)
    if(code MATCHES "^${language}-")
      list(APPEND names "${code}")
    endif()
  endforeach()
  foreach(name IN LISTS names)
    string(REGEX REPLACE "^<${language} " "<${name} " element "${text}")
    string(REGEX REPLACE "</${language}>$" "</${name}>" element "${element}")
    string(APPEND document "\r\n\t${element}")
  endforeach()
endforeach()
string(APPEND document "\r\n</Languages>")

file(WRITE "${OUTPUT}" "${document}")

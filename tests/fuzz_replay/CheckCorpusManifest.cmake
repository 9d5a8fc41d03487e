# Compares the files of the fuzz corpus with its manifest: an input deleted
# by mistake would otherwise just lose its replay test, and an input added
# without review would replay unnoticed.
#
#   cmake -DCORPUS_DIR=<fuzz/corpus> -P CheckCorpusManifest.cmake
#
# The manifest is ${CORPUS_DIR}/MANIFEST: one <target>/<file> per line, lines
# starting with # are comments.
if(NOT CORPUS_DIR)
    message(FATAL_ERROR "CORPUS_DIR is not set")
endif()
get_filename_component(CORPUS_DIR "${CORPUS_DIR}" ABSOLUTE)
set(manifest_file ${CORPUS_DIR}/MANIFEST)
if(NOT EXISTS ${manifest_file})
    message(FATAL_ERROR "the corpus manifest ${manifest_file} is missing")
endif()

file(STRINGS ${manifest_file} lines)
set(listed)
foreach(line IN LISTS lines)
    string(STRIP "${line}" line)
    if(line STREQUAL "" OR line MATCHES "^#")
        continue()
    endif()
    list(APPEND listed ${line})
endforeach()

file(GLOB_RECURSE present RELATIVE ${CORPUS_DIR} ${CORPUS_DIR}/*/*)
list(SORT present)

set(missing ${listed})
list(REMOVE_ITEM missing ${present})
set(unlisted ${present})
list(REMOVE_ITEM unlisted ${listed})

list(LENGTH listed listed_count)
list(LENGTH present present_count)
message(STATUS "${present_count} corpus inputs, ${listed_count} listed in the manifest")
if(missing OR unlisted)
    list(JOIN missing "\n  " missing_text)
    list(JOIN unlisted "\n  " unlisted_text)
    message(FATAL_ERROR "the fuzz corpus differs from ${manifest_file}\n"
                        "listed but missing:\n  ${missing_text}\n"
                        "present but not listed:\n  ${unlisted_text}")
endif()

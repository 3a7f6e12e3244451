# The README's section "Using the library from C++" shows the consumer's two files; they must not
# drift apart. Compares the section's cmake and cpp code blocks with CMakeLists.txt and main.cpp.

# The part of text behind the first marker (an error when there is none).
function(text_after text marker what out)
  string(FIND "${text}" "${marker}" at)
  if(at LESS 0)
    message(FATAL_ERROR "${README}: no ${what}")
  endif()
  string(LENGTH "${marker}" length)
  math(EXPR at "${at} + ${length}")
  string(SUBSTRING "${text}" ${at} -1 rest)
  set(${out} "${rest}" PARENT_SCOPE)
endfunction()

# The part of text before the first marker (all of it when there is none).
function(text_before text marker out)
  string(FIND "${text}" "${marker}" at)
  if(at GREATER -1)
    string(SUBSTRING "${text}" 0 ${at} text)
  endif()
  set(${out} "${text}" PARENT_SCOPE)
endfunction()

file(READ ${README} readme)
text_after("${readme}" "\n## Using the library from C++\n" "section \"Using the library from C++\""
           section)
text_before("${section}" "\n## " section)
foreach(pair "cmake;CMakeLists.txt" "cpp;main.cpp")
  list(GET pair 0 lang)
  list(GET pair 1 name)
  text_after("${section}" "```${lang}\n" "${lang} block in that section" block)
  text_before("${block}" "```\n" shown)
  file(READ ${CONSUMER}/${name} kept)
  if(NOT shown STREQUAL kept)
    message(FATAL_ERROR "the README's ${lang} block differs from ${CONSUMER}/${name}")
  endif()
endforeach()

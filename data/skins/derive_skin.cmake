# Derives one skin from another by a colour map, so that the two keep the
# same forms, controls, ids and drawings and differ only in colour.
#   cmake -DBASE=<base skin folder> -DPALETTE=<palette.txt> -DNAME=<skin name>
#         -DOUT=<folder> -P derive_skin.cmake
# The palette has one line per colour of the base skin: "#from #to", or
# "#from #to xml" / "#from #to svg" to map it only in skin.xml or only in the
# drawings (the same colour may play different parts in each). Lines starting
# with "#" followed by a space, and empty lines, are comments; so is the
# "base NAME" line the build reads. A colour of the base that the palette does
# not map stops the derivation, so a new colour in the base can't slip
# through unmapped.
foreach(var BASE PALETTE NAME OUT)
  if(NOT DEFINED ${var})
    message(FATAL_ERROR "derive_skin: ${var} is not set")
  endif()
endforeach()

file(STRINGS ${PALETTE} lines)
set(froms)
set(line_number 0)
foreach(line IN LISTS lines)
  math(EXPR line_number "${line_number} + 1")
  string(STRIP "${line}" line)
  if(line STREQUAL "" OR line MATCHES "^# " OR line MATCHES "^#$" OR line MATCHES "^base ")
    continue()
  endif()
  if(NOT line MATCHES "^(#[0-9a-fA-F][0-9a-fA-F][0-9a-fA-F][0-9a-fA-F][0-9a-fA-F][0-9a-fA-F])[ \t]+(#[0-9a-fA-F][0-9a-fA-F][0-9a-fA-F][0-9a-fA-F][0-9a-fA-F][0-9a-fA-F])([ \t]+(xml|svg))?$")
    message(FATAL_ERROR "${PALETTE}:${line_number}: expected \"#rrggbb #rrggbb [xml|svg]\"")
  endif()
  string(TOLOWER "${CMAKE_MATCH_1}" from)
  string(TOLOWER "${CMAKE_MATCH_2}" to)
  set(scopes xml svg)
  if(CMAKE_MATCH_4)
    set(scopes ${CMAKE_MATCH_4})
  endif()
  foreach(scope ${scopes})
    if(DEFINED map_${scope}_${from})
      message(FATAL_ERROR "${PALETTE}:${line_number}: ${from} is mapped twice for ${scope}")
    endif()
    set(map_${scope}_${from} ${to})
  endforeach()
endforeach()

# Rewrites every colour of one file through the map of its scope. Each
# colour is first swapped for a placeholder, so that a colour mapped onto
# another colour of the base is not mapped a second time.
function(recolour in out scope)
  file(READ ${in} text)
  string(REGEX MATCHALL "#[0-9a-fA-F][0-9a-fA-F][0-9a-fA-F][0-9a-fA-F][0-9a-fA-F][0-9a-fA-F]" used "${text}")
  list(REMOVE_DUPLICATES used)
  set(index 0)
  set(pending)
  foreach(colour IN LISTS used)
    string(TOLOWER "${colour}" key)
    if(NOT DEFINED map_${scope}_${key})
      message(FATAL_ERROR "${PALETTE}: no colour for ${key}, used in ${in}")
    endif()
    string(REPLACE "${colour}" "@colour${index}@" text "${text}")
    list(APPEND pending "${index}=${map_${scope}_${key}}")
    math(EXPR index "${index} + 1")
  endforeach()
  foreach(entry IN LISTS pending)
    string(REPLACE "=" ";" pair "${entry}")
    list(GET pair 0 i)
    list(GET pair 1 to)
    string(REPLACE "@colour${i}@" "${to}" text "${text}")
  endforeach()
  if(scope STREQUAL "xml")
    string(REGEX REPLACE "<skin name=\"[^\"]*\"" "<skin name=\"${NAME}\"" text "${text}")
  endif()
  file(WRITE ${out} "${text}")
endfunction()

file(MAKE_DIRECTORY ${OUT})
recolour(${BASE}/skin.xml ${OUT}/skin.xml xml)
file(GLOB drawings ${BASE}/*.svg)
foreach(svg IN LISTS drawings)
  get_filename_component(file_name ${svg} NAME)
  recolour(${svg} ${OUT}/${file_name} svg)
endforeach()
